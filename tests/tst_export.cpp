// Export: the page written as SVG, PDF and pixels, read back by their own
// readers and compared with the items painted directly.
#include "testsupport.h"

#include "graphics/graphicellipseitem.h"
#include "graphics/graphicpenitem.h"
#include "graphics/graphictextitem.h"
#include "scene/sceneexport.h"

#include <QDir>
#include <QFontDatabase>
#include <QImageWriter>
#include <QProcess>
#include <QRegularExpression>
#include <QSvgRenderer>
#include <QTemporaryDir>
#include <QXmlStreamReader>

#include <cmath>

using namespace whiteboard;

namespace {

const QString kWords = QStringLiteral("Quarterly plan");
const QColor kGround(250, 248, 240);

// Measured text: the font the setup script installs, by file.
QFont pinnedFont()
{
    static const bool loaded = QFontDatabase::addApplicationFont(QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf")) >= 0;
    if (!loaded)
        qWarning("DejaVu Sans is not installed: run scripts/setup-debian.sh");
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(24);
    return font;
}

// A filled rectangle (selected later, to show that its veil stays out), an
// outlined ellipse and a text, all in the middle of the page.
QSharedPointer<GraphicItem> fillBoard(GraphicScene* scene)
{
    scene->setBackgroundColor(kGround);
    const QSharedPointer<GraphicItem> box = addRect(scene, QRectF(300, 200, 200, 120), 1, QColor(30, 90, 200), GraphicScene::ItemLayer, 1);
    auto* ellipse = new GraphicEllipseItem(scene);
    QPainterPath oval;
    oval.addEllipse(QRectF(420, 260, 260, 180));
    ellipse->setOutlinePath(oval);
    ellipse->setBoundary(oval.boundingRect());
    ellipse->setPen(QPen(QColor(0, 120, 0), 6));
    ellipse->setTimestamp(2);
    scene->addItem(GraphicScene::ItemLayer, ellipse);
    auto* text = new GraphicTextItem(kWords, pinnedFont(), scene);
    text->setBoundary(QRectF(320, 450, 400, 60));
    text->setTimestamp(3);
    scene->addItem(GraphicScene::ItemLayer, text);
    return box;
}

// Scene units the cropped export shows: the items' cover and its margins.
QRect croppedRect(GraphicScene* scene)
{
    QRectF covered;
    for (const QSharedPointer<GraphicItem>& item : scene->items(GraphicScene::ItemLayer, 1))
        covered = covered.united(item->boundary());
    const double grow = scene->paintMargin() + SceneExport::kCropMargin;
    return covered.adjusted(-grow, -grow, grow, grow).toAlignedRect();
}

// The items but `skipped` painted straight into an image of `area` at
// `scale`, over the ground.
QImage paintedAt(GraphicScene* scene, const QRect& area, double scale, const GraphicItem* skipped = nullptr)
{
    QImage image(QSize(std::lround(area.width() * scale), std::lround(area.height() * scale)), QImage::Format_ARGB32_Premultiplied);
    image.fill(kGround);
    QPainter painter(&image);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing | QPainter::SmoothPixmapTransform);
    painter.scale(scale, scale);
    painter.translate(-area.topLeft());
    // As the render thread paints them: under the lock (texts share the shaper's state).
    QMutexLocker locker(&scene->itemsMutex());
    for (const QSharedPointer<GraphicItem>& item : scene->items(GraphicScene::ItemLayer, 1)) {
        if (item.data() != skipped)
            item->paint(&painter, nullptr);
    }
    return image;
}

// Pixels of two equal-sized images whose channels differ by more than `slack`.
int differing(const QImage& a, const QImage& b, int slack)
{
    if (a.size() != b.size())
        return -1;
    const QImage x = a.convertToFormat(QImage::Format_ARGB32);
    const QImage y = b.convertToFormat(QImage::Format_ARGB32);
    int count = 0;
    for (int row = 0; row < x.height(); ++row) {
        for (int column = 0; column < x.width(); ++column) {
            const QRgb p = x.pixel(column, row);
            const QRgb q = y.pixel(column, row);
            count += std::max({ std::abs(qRed(p) - qRed(q)), std::abs(qGreen(p) - qGreen(q)), std::abs(qBlue(p) - qBlue(q)),
                                std::abs(qAlpha(p) - qAlpha(q)) }) > slack;
        }
    }
    return count;
}

// What a poppler tool prints; empty when it failed.
QString poppler(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    return process.waitForFinished(30000) && process.exitCode() == 0 ? QString::fromUtf8(process.readAllStandardOutput()) : QString();
}

} // namespace

class tst_Export : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void pixelsArePaintedFromTheItems_data();
    void pixelsArePaintedFromTheItems();
    void vectorFilesKeepPathsAndTexts_data();
    void vectorFilesKeepPathsAndTexts();
    void refusedWithALogLine_data();
    void refusedWithALogLine();
    void closingTheViewStopsAnExport();

private:
    // Starts an export and waits for its end; false when refused or failed.
    bool exportAndWait(const QString& path, double scale, bool crop);

    std::unique_ptr<ViewFixture> m_board;
    std::unique_ptr<QTemporaryDir> m_dir;
};

void tst_Export::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_board = std::make_unique<ViewFixture>();
}

bool tst_Export::exportAndWait(const QString& path, double scale, bool crop)
{
    QSignalSpy done(m_board->view, &WhiteboardView::sceneExported);
    if (!m_board->view->exportScene(QUrl::fromLocalFile(path).toString(), scale, crop))
        return false;
    if (!done.wait(30000))
        return false;
    return done.first().at(0).toString() == path && done.first().at(1).toBool();
}

void tst_Export::pixelsArePaintedFromTheItems_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<double>("scale"); // 0: the form without a scale
    QTest::addColumn<bool>("crop");
    QTest::addColumn<bool>("lossy"); // then a few pixels may be off, a little

    QTest::newRow("png as before: the thumbnail") << "png" << 0.0 << false << false;
    QTest::newRow("png at 2x") << "png" << 2.0 << false << false;
    QTest::newRow("png at 2x, cropped to the items") << "png" << 2.0 << true << false;
    QTest::newRow("png at 1x, cropped to the items") << "png" << 1.0 << true << false;
    QTest::newRow("jpg at 1.5x") << "jpg" << 1.5 << false << true;
    QTest::newRow("webp at 2x, cropped") << "webp" << 2.0 << true << true;
}

void tst_Export::pixelsArePaintedFromTheItems()
{
    QFETCH(QString, suffix);
    QFETCH(double, scale);
    QFETCH(bool, crop);
    QFETCH(bool, lossy);
    if (!QImageWriter::supportedImageFormats().contains(suffix.toLatin1()))
        QSKIP("Qt has no image plugin for this format here");
    GraphicScene* scene = m_board->scene;
    fillBoard(scene);
    const QRect area = crop ? croppedRect(scene) : QRect(0, 0, 1080, 720);
    const QImage expected = paintedAt(scene, area, scale > 0 ? scale : 1.0);
    // Selected through the window: its veil and handles show in frames only.
    m_board->press(QPoint(340, 220));
    m_board->release(QPoint(340, 220));
    QTRY_COMPARE(scene->selectedItems().size(), 1);
    QVERIFY(m_board->settle());

    const QString path = m_dir->filePath(QStringLiteral("board.") + suffix);
    QImage wanted = expected;
    if (scale > 0) {
        QVERIFY(exportAndWait(path, scale, crop));
    } else {
        // Kept as it was: the large thumbnail over the ground, veil included.
        QVERIFY(m_board->view->exportScene(path));
        wanted = QImage(1080, 720, QImage::Format_ARGB32_Premultiplied);
        wanted.fill(kGround);
        QPainter(&wanted).drawImage(0, 0, *scene->thumbnailImage(false));
    }
    const QImage written(path);
    QCOMPARE(written.size(), expected.size());
    if (lossy) {
        const int off = differing(written, wanted, 64);
        QVERIFY2(off >= 0 && off < written.width() * written.height() / 500, qPrintable(QString::number(off)));
    } else {
        QCOMPARE(differing(written, wanted, 0), 0);
    }
}

void tst_Export::vectorFilesKeepPathsAndTexts_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<bool>("crop");

    QTest::newRow("svg") << "svg" << false;
    QTest::newRow("svg cropped to the items") << "svg" << true;
    QTest::newRow("pdf") << "pdf" << false;
    QTest::newRow("pdf cropped to the items") << "pdf" << true;
}

void tst_Export::vectorFilesKeepPathsAndTexts()
{
    QFETCH(QString, suffix);
    QFETCH(bool, crop);
    GraphicScene* scene = m_board->scene;
    fillBoard(scene);
    // A stroke long enough that frames draw it as a picture: a file keeps its path.
    auto* pen = new GraphicPenItem(scene);
    QPainterPath wave(QPointF(200, 150));
    for (int i = 1; i <= 1500; ++i)
        wave.lineTo(200 + i * 0.4, 150 + 20 * std::sin(i / 40.0));
    pen->setOutlinePath(wave);
    pen->setBoundary(wave.boundingRect());
    pen->setPen(QPen(Qt::black, 2));
    pen->setTimestamp(4);
    scene->addItem(GraphicScene::ItemLayer, pen);
    const QRect area = crop ? croppedRect(scene) : QRect(0, 0, 1080, 720);
    // The page as the file should show it: the stroke drawn as its path.
    QImage expected = paintedAt(scene, area, 1.0, pen);
    {
        QPainter painter(&expected);
        painter.setRenderHints(QPainter::Antialiasing);
        painter.setPen(QPen(Qt::black, 2, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin));
        painter.translate(-area.topLeft());
        painter.drawPath(wave);
    }
    QVERIFY(m_board->settle());
    const QString path = m_dir->filePath(QStringLiteral("board.") + suffix);
    QVERIFY(exportAndWait(path, 1.0, crop));

    if (suffix == QLatin1String("pdf")) {
        const QString info = poppler(QStringLiteral("pdfinfo"), { path });
        QVERIFY2(!info.isEmpty(), "pdfinfo (poppler-utils) failed; run scripts/setup-debian.sh");
        QVERIFY2(info.contains(QRegularExpression(QStringLiteral("Page size: +%1 x %2 pts").arg(area.width()).arg(area.height()))), qPrintable(info));
        QVERIFY(info.contains(QRegularExpression(QStringLiteral("Pages: +1\\n"))));
        QVERIFY(poppler(QStringLiteral("pdftotext"), { path, QStringLiteral("-") }).contains(kWords));
        return;
    }

    QSvgRenderer renderer(path);
    QVERIFY(renderer.isValid());
    QCOMPARE(renderer.viewBox(), QRect(QPoint(0, 0), area.size()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    int paths = 0;
    int longest = 0;
    QStringList texts;
    QXmlStreamReader xml(&file);
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (xml.name() == QLatin1String("path")) {
            ++paths;
            longest = std::max(longest, int(xml.attributes().value(QLatin1String("d")).count(QLatin1Char('L'))));
        } else if (xml.name() == QLatin1String("text")) {
            texts.append(xml.readElementText(QXmlStreamReader::IncludeChildElements).trimmed());
        }
    }
    QVERIFY(!xml.hasError());
    QVERIFY(paths >= 3);
    QVERIFY(longest >= 1500);
    QVERIFY2(texts.contains(kWords), qPrintable(texts.join(QLatin1Char('|'))));

    // Rasterized, it is the page: antialiasing and text may differ a little.
    QImage raster(area.size(), QImage::Format_ARGB32_Premultiplied);
    raster.fill(Qt::transparent);
    {
        QPainter painter(&raster);
        painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing | QPainter::SmoothPixmapTransform);
        renderer.render(&painter);
    }
    const int off = differing(raster, expected, 64);
    QVERIFY2(off >= 0 && off < area.width() * area.height() / 200, qPrintable(QString::number(off)));
}

void tst_Export::refusedWithALogLine_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<double>("scale"); // 0: the form without a scale
    QTest::addColumn<QString>("message");

    const QString missing = QStringLiteral("/nonexistent-dir/board.");
    QTest::newRow("unknown suffix") << "board.xyz" << 2.0 << "cannot export to %1: unknown format";
    QTest::newRow("unknown suffix, first form") << "board.doc" << 0.0 << "cannot export to %1: unknown format";
    QTest::newRow("unwritable svg") << missing + "svg" << 1.0 << "cannot export to %1: No such file or directory";
    QTest::newRow("unwritable pdf, first form") << missing + "pdf" << 0.0 << "cannot export to %1: No such file or directory";
    // As the image writer words it.
    QTest::newRow("unwritable png, first form") << missing + "png" << 0.0
                                                << "cannot export to %1: Cannot open device for writing: No such file or directory";
    QTest::newRow("scale beyond the limit") << "board.png" << 4.5 << "refused export to %1: scale 4.5 beyond 0 to 4";
    QTest::newRow("scale not a number") << "board.png" << qQNaN() << "refused export to %1: scale nan beyond 0 to 4";
}

void tst_Export::refusedWithALogLine()
{
    QFETCH(QString, name);
    QFETCH(double, scale);
    QFETCH(QString, message);
    QVERIFY(m_board->settle());
    const QString path = name.startsWith(QLatin1Char('/')) ? name : m_dir->filePath(name);
    QSignalSpy done(m_board->view, &WhiteboardView::sceneExported);
    QTest::ignoreMessage(QtWarningMsg, qPrintable(message.arg(path)));
    QVERIFY(!(scale == 0.0 ? m_board->view->exportScene(path) : m_board->view->exportScene(path, scale, false)));
    QVERIFY(QDir(m_dir->path()).isEmpty());
    QCOMPARE(done.size(), 0);
}

void tst_Export::closingTheViewStopsAnExport()
{
    for (int i = 0; i < 3000; ++i)
        addRect(m_board->scene, QRectF(i % 1000, i % 700, 20, 20), 1, QColor(), GraphicScene::ItemLayer, i + 1);
    QVERIFY(m_board->view->exportScene(m_dir->filePath(QStringLiteral("board.pdf")), 1.0, false));
    m_board.reset();
    // Written whole or not at all: no half file, no temporary one left.
    const QStringList left = QDir(m_dir->path()).entryList(QDir::Files);
    QVERIFY2(left.isEmpty() || left == QStringList { QStringLiteral("board.pdf") }, qPrintable(left.join(QLatin1Char(' '))));
}

QTEST_MAIN(tst_Export)
#include "tst_export.moc"
