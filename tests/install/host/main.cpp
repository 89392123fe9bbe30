// Loads com.im.whiteboard from the installed QML folder alone, draws a
// rectangle by mouse on its window, checks the page shows it and that
// sendData hands out its add, decoded with the installed message classes.
// Exits 0 on success.
#include "proto/whiteboard.pb.h"

#include <QGuiApplication>
#include <QImage>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <QTest>

#include <cstdio>

class Host : public QObject
{
    Q_OBJECT

public slots:
    // The host owns each message it is handed.
    void take(im::whiteboard::TransferData* data)
    {
        for (const im::whiteboard::SingleWhiteboardData& envelope : data->multi().whiteboarddatalist()) {
            im::whiteboard::WhiteboardData body;
            if (body.ParseFromString(envelope.data()) && body.graphicactiondata().graphicactiontype() == im::whiteboard::GraphicActionAdd)
                rects += body.graphicactiondata().rectdata().data_size();
        }
        delete data;
    }

public:
    int rects = 0;
};

static int fail(const char* what)
{
    std::fprintf(stderr, "whiteboard_host: %s\n", what);
    return 1;
}

int main(int argc, char* argv[])
{
    QGuiApplication app(argc, argv);
    QQuickView window;
    window.setResizeMode(QQuickView::SizeRootObjectToView);
    window.resize(1080, 720);
    window.setColor(Qt::white);
    QQmlComponent component(window.engine());
    component.setData("import QtQuick\n"
                      "import com.im.whiteboard 1.0\n"
                      "WhiteboardView {\n"
                      "    property int accountId: 1001\n"
                      "    anchors.fill: parent\n"
                      "    currentAccountId: accountId\n"
                      "    userName: \"Alice\"\n"
                      "    isOwner: true\n"
                      "    toolType: GraphicDefine.Rectangle\n"
                      "}\n",
                      QUrl());
    auto* view = qobject_cast<QQuickItem*>(component.create());
    if (!view) {
        std::fprintf(stderr, "%s\n", qPrintable(component.errorString()));
        return fail("the module did not load");
    }
    view->setParentItem(window.contentItem());
    view->setSize(QSizeF(1080, 720));
    Host host;
    if (!QObject::connect(view, SIGNAL(sendData(im::whiteboard::TransferData*)), &host, SLOT(take(im::whiteboard::TransferData*))))
        return fail("no sendData signal");
    window.show();
    if (!QTest::qWaitForWindowExposed(&window))
        return fail("window not exposed");

    QTest::mousePress(&window, Qt::LeftButton, Qt::NoModifier, QPoint(200, 200));
    for (int i = 1; i <= 4; ++i)
        QTest::mouseMove(&window, QPoint(200 + 50 * i, 200 + 30 * i));
    QTest::mouseRelease(&window, Qt::LeftButton, Qt::NoModifier, QPoint(400, 320));

    if (!QTest::qWaitFor([&] { return host.rects > 0; }, 10000))
        return fail("sendData carried no rectangle");
    // The outline is on the page: its right edge (where the drag ended) is
    // painted, its inside is the page's ground.
    const bool drawn = QTest::qWaitFor([&] {
        const QImage image = window.grabWindow();
        return image.pixelColor(400, 290) != image.pixelColor(350, 290) && image.pixelColor(350, 290) == image.pixelColor(50, 50);
    }, 10000);
    if (!drawn)
        return fail("the rectangle is not on the page");
    std::printf("whiteboard_host: drew a rectangle, sendData carried %d\n", host.rects);
    return 0;
}

#include "main.moc"
