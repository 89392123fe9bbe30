// Rectangle, ellipse, text and image items with their controllers, driven by
// mouse events at view positions on a real offscreen view (1 pixel = 1 unit).
#include "testsupport.h"

#include "graphics/graphicellipseitem.h"
#include "graphics/graphicimage.h"
#include "graphics/graphicmarkitem.h"
#include "graphics/graphicpaths.h"
#include "graphics/graphicrectitem.h"
#include "graphics/graphictextitem.h"
#include "graphics/graphiccontroller.h"

#include <QMouseEvent>
#include <QPainter>
#include <QSignalSpy>

#include <cmath>

using namespace whiteboard;

namespace {

// A circle is an ellipse in a square frame.
enum Kind { Rect, Ellipse, Text, Image, Circle };

QMouseEvent mouse(QEvent::Type type, QPointF pos, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    const Qt::MouseButtons buttons = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton;
    const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    return QMouseEvent(type, pos, pos, button, buttons, modifiers);
}

// Gives an item a finished frame, as the end of a creation gesture leaves it.
void setFrame(AbstractGraphicShapeItem* item, const QRectF& frame)
{
    QPainterPath path;
    if (item->type() == GraphicItem::Ellipse)
        path.addEllipse(frame);
    else
        path.addRect(frame);
    item->setOutlinePath(path);
    item->rebuildHitPath();
    item->setBoundary(frame);
}

QImage blank(int w, int h)
{
    QImage image(w, h, QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    return image;
}

} // namespace

class tst_Shapes : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<AbstractGraphicShapeItem> make(int kind)
    {
        switch (kind) {
        case Rect:
            return std::make_unique<GraphicRectItem>(f->scene);
        case Ellipse:
        case Circle:
            return std::make_unique<GraphicEllipseItem>(f->scene);
        case Text:
            return std::make_unique<GraphicTextItem>(QString(), QFont(), f->scene);
        default:
            return std::make_unique<GraphicImage>(QString(), f->scene);
        }
    }

    std::unique_ptr<ViewFixture> f;

private slots:
    void initTestCase() { f = std::make_unique<ViewFixture>(); }
    void cleanupTestCase() { f.reset(); }

    void pointHitTolerance_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<bool>("filled");
        QTest::addColumn<int>("mode");
        QTest::addColumn<QPointF>("point");
        QTest::addColumn<bool>("hit");
        // Rectangle (100,100 400x300); pen width 1 gives a tolerance of 3.5.
        QTest::newRow("rect 3.5 outside") << int(Rect) << false << 1 << QPointF(96.5, 250) << true;
        QTest::newRow("rect 3.6 outside") << int(Rect) << false << 1 << QPointF(96.4, 250) << false;
        QTest::newRow("rect 3.5 inside") << int(Rect) << false << 1 << QPointF(103.5, 250) << true;
        QTest::newRow("rect 3.6 inside") << int(Rect) << false << 0 << QPointF(103.6, 250) << false;
        QTest::newRow("rect middle") << int(Rect) << false << 1 << QPointF(300, 250) << false;
        QTest::newRow("rect middle by bounds") << int(Rect) << false << 3 << QPointF(300, 250) << true;
        QTest::newRow("filled middle") << int(Rect) << true << 1 << QPointF(300, 250) << true;
        QTest::newRow("no-pen 3.5 outside") << int(Rect) << true << 1 << QPointF(96.5, 250) << true;
        QTest::newRow("no-pen 3.6 outside") << int(Rect) << true << 1 << QPointF(96.4, 250) << false;
        // Ellipse (100,100 400x200): the distance along an axis is exact.
        QTest::newRow("ellipse 3.5 right") << int(Ellipse) << false << 1 << QPointF(503.5, 200) << true;
        QTest::newRow("ellipse 3.6 right") << int(Ellipse) << false << 1 << QPointF(503.6, 200) << false;
        QTest::newRow("ellipse top vertex") << int(Ellipse) << false << 1 << QPointF(300, 100) << true;
        QTest::newRow("ellipse 3.5 above") << int(Ellipse) << false << 1 << QPointF(300, 96.5) << true;
        QTest::newRow("ellipse 3.6 above") << int(Ellipse) << false << 1 << QPointF(300, 96.4) << false;
        QTest::newRow("ellipse middle") << int(Ellipse) << false << 1 << QPointF(300, 200) << false;
        QTest::newRow("ellipse filled") << int(Ellipse) << true << 1 << QPointF(300, 200) << true;
        QTest::newRow("ellipse frame corner") << int(Ellipse) << false << 1 << QPointF(102, 102) << false;
        // Circle (100,100 200x200): a diagonal point is judged by its distance to the centre.
        const auto diagonal = [](double offset) { return QPointF(200, 200) + QPointF(1, 1) * (100.0 + offset) / std::sqrt(2.0); };
        QTest::newRow("circle 3.4 outside") << int(Circle) << false << 1 << diagonal(3.4) << true;
        QTest::newRow("circle 3.6 outside") << int(Circle) << false << 1 << diagonal(3.6) << false;
        QTest::newRow("circle 3.4 inside") << int(Circle) << false << 1 << diagonal(-3.4) << true;
        QTest::newRow("circle 3.6 inside") << int(Circle) << false << 1 << diagonal(-3.6) << false;
        // Text and image: the whole frame, in every mode.
        QTest::newRow("text middle") << int(Text) << false << 0 << QPointF(300, 250) << true;
        QTest::newRow("text outside") << int(Text) << false << 1 << QPointF(99, 250) << false;
        QTest::newRow("image middle") << int(Image) << false << 3 << QPointF(300, 250) << true;
    }

    void pointHitTolerance()
    {
        QFETCH(int, kind);
        QFETCH(bool, filled);
        QFETCH(int, mode);
        QFETCH(QPointF, point);
        QFETCH(bool, hit);
        auto item = make(kind);
        const QRectF frame = kind == Circle ? QRectF(100, 100, 200, 200) : QRectF(100, 100, 400, kind == Ellipse ? 200 : 300);
        setFrame(item.get(), frame);
        if (filled) {
            item->setPen(QPen(Qt::NoPen));
            item->setBrush(QBrush(Qt::red));
        }
        QCOMPARE(item->collidesWithPoint(point, Qt::ItemSelectionMode(mode)), hit);
    }

    void frameCreation_data()
    {
        QTest::addColumn<int>("kind");
        QTest::newRow("rectangle") << int(Rect);
        QTest::newRow("text") << int(Text);
        QTest::newRow("image") << int(Image);
    }

    void frameCreation()
    {
        QFETCH(int, kind);
        auto item = make(kind);
        item->setIsEditMode(true);

        QMouseEvent press = mouse(QEvent::MouseButtonPress, QPointF(300, 200));
        item->mousePressEvent(&press);
        QVERIFY(press.isAccepted());
        QVERIFY(item->outlinePath().isEmpty());

        QMouseEvent first = mouse(QEvent::MouseMove, QPointF(250, 120));
        item->mouseMoveEvent(&first);
        QMouseEvent second = mouse(QEvent::MouseMove, QPointF(100, 50));
        item->mouseMoveEvent(&second);
        QVERIFY(second.isAccepted());
        QCOMPARE(item->boundary(), QRectF(100, 50, 200, 150));
        // Mid-drag the hit path also covers the previous frame's left edge.
        QVERIFY(item->hitPath().contains(QPointF(250, 160)));

        QMouseEvent release = mouse(QEvent::MouseButtonRelease, QPointF(100, 50));
        item->mouseReleaseEvent(&release);
        QVERIFY(release.isAccepted());
        QVERIFY(!item->isEditMode());
        QCOMPARE(item->hitPath(), GraphicPaths::strokeOf(item->outlinePath()));
        QVERIFY(!item->hitPath().contains(QPointF(250, 160)));

        // Finished: a press away from it is left to others, one on its edge is taken.
        QMouseEvent away = mouse(QEvent::MouseButtonPress, QPointF(600, 600));
        item->mousePressEvent(&away);
        QVERIFY(!away.isAccepted());
        QMouseEvent edge = mouse(QEvent::MouseButtonPress, QPointF(100, 120));
        item->mousePressEvent(&edge);
        QVERIFY(edge.isAccepted());
        QVERIFY(item->activeFocus());
    }

    void ellipseCreation_data()
    {
        QTest::addColumn<Qt::KeyboardModifiers>("modifiers");
        QTest::addColumn<QPointF>("start");
        QTest::addColumn<QPointF>("end");
        QTest::addColumn<QRectF>("frame");
        const QPointF a(100, 100), b(300, 200);
        QTest::newRow("plain") << Qt::KeyboardModifiers() << a << b << QRectF(100, 100, 200, 100);
        QTest::newRow("shift: circle of the smaller side") << Qt::KeyboardModifiers(Qt::ShiftModifier) << a << b
                                                          << QRectF(150, 100, 100, 100);
        QTest::newRow("alt: 1.5 times around top-left") << Qt::KeyboardModifiers(Qt::AltModifier) << a << b
                                                        << QRectF(-50, 25, 300, 150);
        QTest::newRow("alt from the other corner") << Qt::KeyboardModifiers(Qt::AltModifier) << b << a
                                                   << QRectF(-50, 25, 300, 150);
        QTest::newRow("alt then shift") << Qt::KeyboardModifiers(Qt::AltModifier | Qt::ShiftModifier) << a << b
                                        << QRectF(25, 25, 150, 150);
    }

    void ellipseCreation()
    {
        QFETCH(Qt::KeyboardModifiers, modifiers);
        QFETCH(QPointF, start);
        QFETCH(QPointF, end);
        QFETCH(QRectF, frame);
        GraphicEllipseItem item(f->scene);
        item.setIsEditMode(true);
        QMouseEvent press = mouse(QEvent::MouseButtonPress, start, modifiers);
        item.mousePressEvent(&press);
        QMouseEvent move = mouse(QEvent::MouseMove, end, modifiers);
        item.mouseMoveEvent(&move);
        QMouseEvent release = mouse(QEvent::MouseButtonRelease, end, modifiers);
        item.mouseReleaseEvent(&release);
        QCOMPARE(item.boundary(), frame);
        QCOMPARE(item.outlinePath().boundingRect(), frame);
        QVERIFY(!item.isEditMode());
    }

    void controllerHandleDrag_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QRectF>("frame");
        QTest::addColumn<int>("handle");
        QTest::addColumn<QPointF>("target");
        QTest::addColumn<QRectF>("result");
        QTest::newRow("rect top-left past bottom-right")
            << int(Rect) << QRectF(100, 100, 200, 100) << int(GraphicDefine::GCP_SizeTopLeft) << QPointF(400, 300)
            << QRectF(300, 200, 100, 100);
        QTest::newRow("image corner keeps no aspect ratio")
            << int(Image) << QRectF(100, 100, 200, 100) << int(GraphicDefine::GCP_SizeBottomRight)
            << QPointF(500, 150) << QRectF(100, 100, 400, 50);
        QTest::newRow("ellipse top past bottom")
            << int(Ellipse) << QRectF(100, 100, 200, 100) << int(GraphicDefine::GCP_SizeTopCenter)
            << QPointF(200, 260) << QRectF(100, 200, 200, 60);
        QTest::newRow("ellipse right moves one axis")
            << int(Ellipse) << QRectF(100, 100, 200, 100) << int(GraphicDefine::GCP_SizeRightCenter)
            << QPointF(350, 170) << QRectF(100, 100, 250, 100);
        QTest::newRow("text bottom-right") << int(Text) << QRectF(100, 100, 200, 40)
                                           << int(GraphicDefine::GCP_SizeBottomRight) << QPointF(300, 200)
                                           << QRectF(100, 100, 200, 100);
    }

    void controllerHandleDrag()
    {
        QFETCH(int, kind);
        QFETCH(QRectF, frame);
        QFETCH(int, handle);
        QFETCH(QPointF, target);
        QFETCH(QRectF, result);
        auto item = make(kind);
        setFrame(item.get(), frame);
        GraphicController* controller = item->controller();
        QVERIFY(controller);
        const QPointF handlePos = controller->controlPoint(handle).position;

        QMouseEvent press = mouse(QEvent::MouseButtonPress, handlePos);
        controller->mousePressEvent(&press);
        QVERIFY(press.isAccepted());
        QCOMPARE(controller->activePoint(), handle);
        // Every move starts again from the frame at the press.
        QMouseEvent detour = mouse(QEvent::MouseMove, QPointF(700, 600));
        controller->mouseMoveEvent(&detour);
        QMouseEvent move = mouse(QEvent::MouseMove, target);
        controller->mouseMoveEvent(&move);
        QMouseEvent release = mouse(QEvent::MouseButtonRelease, target);
        controller->mouseReleaseEvent(&release);

        QCOMPARE(item->boundary(), result);
        QCOMPARE(item->outlinePath().boundingRect(), result);
        QCOMPARE(item->hitPath(), GraphicPaths::strokeOf(item->outlinePath()));
        QCOMPARE(controller->activePoint(), -1);
        // The handles follow the new frame.
        QCOMPARE(controller->controlPoint(handle).position, controller->controlPointPosition(handle));
        if (kind == Text)
            QCOMPARE(static_cast<GraphicTextItem*>(item.get())->font().pixelSize(), 80);
    }

    void selectedTextPaintsDarker()
    {
        QFont font;
        font.setPixelSize(60);
        font.setStyleStrategy(QFont::NoAntialias);
        GraphicTextItem item("MW", font, f->scene);
        const QColor color(40, 120, 200);
        item.setPen(QPen(color));
        item.setBoundary(QRectF(0, 0, 200, 100));

        auto render = [&item](bool selected) {
            item.setSelected(selected);
            QImage image = blank(200, 100);
            QPainter painter(&image);
            item.paint(&painter);
            return image;
        };
        const QImage plain = render(false);
        const QImage selected = render(true);

        int inked = 0;
        for (int y = 0; y < plain.height(); ++y) {
            for (int x = 0; x < plain.width(); ++x) {
                const QRgb a = plain.pixel(x, y);
                const QRgb b = selected.pixel(x, y);
                // The same pixels are inked (no veil), only darker.
                QCOMPARE(qAlpha(a), qAlpha(b));
                if (qAlpha(a) == 0)
                    continue;
                ++inked;
                QCOMPARE(a, color.rgba());
                QCOMPARE(b, color.darker(110).rgba());
            }
        }
        QVERIFY(inked > 100);
    }

    void imagePaintsStretched()
    {
        QImage picture(2, 1, QImage::Format_ARGB32);
        picture.setPixel(0, 0, qRgb(255, 0, 0));
        picture.setPixel(1, 0, qRgb(0, 0, 255));
        GraphicImage item(f->scene->addImage(picture), f->scene);
        setFrame(&item, QRectF(10, 10, 100, 50));
        GraphicImage missing("no such key", f->scene);
        setFrame(&missing, QRectF(10, 10, 100, 50));

        QImage image = blank(200, 100);
        {
            QPainter painter(&image);
            missing.paint(&painter);
        }
        QCOMPARE(image, blank(200, 100));
        {
            QPainter painter(&image);
            item.paint(&painter);
        }
        QCOMPARE(image.pixel(20, 35), qRgb(255, 0, 0));
        QCOMPARE(image.pixel(100, 12), qRgb(0, 0, 255));
        QCOMPARE(image.pixel(5, 35), qRgba(0, 0, 0, 0));
        QCOMPARE(image.pixel(20, 65), qRgba(0, 0, 0, 0));
    }

    // A mark's label colour comes with its user, on the thread that sets it;
    // painting (the render thread's part) reads the mark and changes nothing.
    void markColourComesWithItsUser_data()
    {
        QTest::addColumn<qlonglong>("user");
        QTest::addColumn<bool>("valid");
        QTest::newRow("first pair") << qlonglong(1) << true;
        QTest::newRow("pairs share") << qlonglong(8) << true;
        QTest::newRow("negative: invalid") << qlonglong(-3) << false;
    }
    void markColourComesWithItsUser()
    {
        QFETCH(qlonglong, user);
        QFETCH(bool, valid);
        GraphicMarkItem mark(QStringLiteral("Bob"), QFont(), f->scene);
        mark.setUserId(user);
        QCOMPARE(mark.markColor(), GraphicMarkItem::colorForUser(int(user)));
        QCOMPARE(mark.markColor().isValid(), valid);
        mark.place(QPointF(10, 10), f->scene->scale());
        const QRectF frame = mark.boundary();
        const QColor colour = mark.markColor();
        QSignalSpy boundaryChanged(&mark, &GraphicItem::boundaryChanged);
        QSignalSpy fontChanged(&mark, &GraphicMarkItem::fontChanged);
        QImage image = blank(200, 100);
        {
            QPainter painter(&image);
            mark.paint(&painter);
        }
        QVERIFY(image != blank(200, 100));
        QCOMPARE(mark.boundary(), frame);
        QCOMPARE(mark.markColor(), colour);
        QCOMPARE(boundaryChanged.count(), 0);
        QCOMPARE(fontChanged.count(), 0);
    }
};

QTEST_MAIN(tst_Shapes)
#include "tst_shapes.moc"
