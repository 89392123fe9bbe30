// The item base: default painting, hit tests, geometry notifications and identity.
#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphicpaths.h"

#include <QPainter>
#include <QPicture>
#include <QSignalSpy>
#include <QTest>

using namespace whiteboard;

namespace {

QImage paintItem(AbstractGraphicShapeItem& item)
{
    QImage image(60, 60, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::white);
    QPainter painter(&image);
    item.paint(&painter);
    return image;
}

void makeSquare(AbstractGraphicShapeItem& item, const QRectF& rect)
{
    QPainterPath path;
    path.addRect(rect);
    item.setOutlinePath(path);
    item.rebuildHitPath();
    item.setBoundary(rect);
}

} // namespace

class tst_ShapeBase : public QObject
{
    Q_OBJECT

private slots:
    void opacityThreshold_data();
    void opacityThreshold();
    void outlines_data();
    void outlines();
    void selectionLook();
    void styleProperties();
    void pointAndRectTests();
    void rectTestsAlikeBeforeTheBandIsBuilt_data();
    void rectTestsAlikeBeforeTheBandIsBuilt();
    void boundaryNotifications();
    void gidsAndCopies();
};

void tst_ShapeBase::opacityThreshold_data()
{
    QTest::addColumn<double>("opacity");
    QTest::addColumn<bool>("painted");
    QTest::newRow("0.0005") << 0.0005 << false;
    QTest::newRow("0.001") << 0.001 << true;
    QTest::newRow("1") << 1.0 << true;
}

void tst_ShapeBase::opacityThreshold()
{
    QFETCH(double, opacity);
    QFETCH(bool, painted);
    AbstractGraphicShapeItem item;
    makeSquare(item, QRectF(10, 10, 40, 40));
    item.setPen(QPen(Qt::NoPen));
    item.setBrush(QBrush(Qt::black));
    item.setOpacity(opacity);
    // A faint fill rounds to no visible pixel, so record the calls instead.
    QPicture blank;
    QPainter(&blank).end();
    QPicture picture;
    QPainter painter(&picture);
    item.paint(&painter);
    painter.end();
    QCOMPARE(picture.size() > blank.size(), painted);
}

// Outlines made to their size are the paths addRect(), addEllipse(),
// moveTo() and lineTo() make on an empty path, down to what they refuse; items
// paint a copy of them, with the pixels of the path drawn as it is, fill rule
// included, at the view's scale and a thumbnail's.
void tst_ShapeBase::outlines_data()
{
    QTest::addColumn<QPainterPath>("made");
    QTest::addColumn<QPainterPath>("plain");
    const QRectF frame(10.5, 12, 37, 30.25);
    QPainterPath rect, ellipse, line, nullRect, star;
    rect.addRect(frame);
    ellipse.addEllipse(frame);
    line.moveTo(frame.topLeft());
    line.lineTo(frame.bottomRight());
    nullRect.addRect(QRectF(7, 9, 0, 0));
    // Crossing itself, so that the two fill rules differ in the middle.
    star.addPolygon(QPolygonF({ { 30, 5 }, { 45, 52 }, { 6, 22 }, { 54, 22 }, { 15, 52 } }));
    star.closeSubpath();
    QPainterPath winding = star;
    winding.setFillRule(Qt::WindingFill);
    using Item = GraphicPaths;
    QTest::newRow("rectangle") << Item::rectPath(frame) << rect;
    QTest::newRow("ellipse") << Item::ellipsePath(frame) << ellipse;
    QTest::newRow("line") << Item::segmentPath(frame.topLeft(), frame.bottomRight()) << line;
    QTest::newRow("null rectangle") << Item::rectPath(QRectF(7, 9, 0, 0)) << nullRect;
    QTest::newRow("out of range") << Item::segmentPath(QPointF(1e200, 0), QPointF(2e200, 1)) << QPainterPath();
    QTest::newRow("star, odd-even") << star << star;
    QTest::newRow("star, winding") << winding << winding;
}

void tst_ShapeBase::outlines()
{
    QFETCH(QPainterPath, made);
    QFETCH(QPainterPath, plain);
    QCOMPARE(made, plain);
    QCOMPARE(made.elementCount(), plain.elementCount());
    // Drawn on, as a drag's dirty path is: the next piece starts as it would.
    const auto extended = [](QPainterPath path) {
        path.lineTo(1, 2);
        return path;
    };
    QCOMPARE(extended(made), extended(plain));
    AbstractGraphicShapeItem item;
    item.setOutlinePath(made);
    const QPen pen(QColor(0, 0, 139), 3, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin);
    item.setPen(pen);
    item.setBrush(QBrush(QColor("#c8dcff")));
    for (const double scale : { 1.0, 0.11 }) {
        QImage painted(60, 60, QImage::Format_ARGB32_Premultiplied);
        painted.fill(Qt::white);
        QImage expected = painted;
        QPainter direct(&expected);
        direct.setRenderHint(QPainter::Antialiasing);
        direct.scale(scale, scale);
        direct.setPen(pen);
        direct.setBrush(item.brush());
        direct.drawPath(plain);
        direct.drawPath(plain);
        QPainter painter(&painted);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.scale(scale, scale);
        // Twice: later frames paint the same outline again.
        item.paint(&painter);
        item.paint(&painter);
        direct.end();
        painter.end();
        QCOMPARE(painted, expected);
    }
    QCOMPARE(item.outlinePath(), plain);
}

void tst_ShapeBase::selectionLook()
{
    AbstractGraphicShapeItem outline;
    makeSquare(outline, QRectF(10, 10, 40, 40));
    outline.setPen(QPen(QColor(200, 100, 50), 4));
    const QRgb normal = paintItem(outline).pixel(10, 30);
    outline.setSelected(true);
    const QImage selected = paintItem(outline);
    // Outline only: darker by ten per cent, no veil inside.
    QCOMPARE(selected.pixel(10, 30), QColor(200, 100, 50).darker(110).rgb());
    QVERIFY(normal != selected.pixel(10, 30));
    QCOMPARE(selected.pixel(30, 30), qRgb(255, 255, 255));

    AbstractGraphicShapeItem filled;
    makeSquare(filled, QRectF(10, 10, 40, 40));
    filled.setPen(QPen(Qt::NoPen));
    filled.setBrush(QBrush(QColor(200, 200, 200)));
    filled.setSelected(true);
    // Filled: darker, then a translucent black veil on top.
    const QColor darker = QColor(200, 200, 200).darker(110);
    const QColor inside = paintItem(filled).pixelColor(30, 30);
    QVERIFY(inside.red() < darker.red());

    filled.setSelected(false);
    filled.setHovered(true);
    QCOMPARE(paintItem(filled).pixelColor(30, 30), QColor(200, 200, 200));
}

void tst_ShapeBase::styleProperties()
{
    AbstractGraphicShapeItem item;
    item.setPen(QPen(Qt::NoPen));
    QSignalSpy widthSpy(&item, &AbstractGraphicShapeItem::strokeWidthChanged);
    QCOMPARE(item.strokeWidth(), 1.0);
    item.setStrokeWidth(5);
    QCOMPARE(widthSpy.count(), 0);
    QCOMPARE(item.pen(), QPen(Qt::NoPen));

    // With a brush, colour means the fill; the pen stays as it is.
    item.setPen(QPen(Qt::blue));
    item.setBrush(QBrush(Qt::green));
    // Items of equal styles share them; a change to one leaves the other.
    AbstractGraphicShapeItem other;
    other.setPen(QPen(Qt::blue));
    other.setBrush(QBrush(Qt::green));
    QCOMPARE(item.color(), QColor(Qt::green));
    QSignalSpy colorSpy(&item, &AbstractGraphicShapeItem::colorChanged);
    item.setColor(Qt::red);
    item.setColor(Qt::red);
    QCOMPARE(colorSpy.count(), 1);
    QCOMPARE(item.brush().color(), QColor(Qt::red));
    QCOMPARE(item.pen().color(), QColor(Qt::blue));
    item.setStrokeWidth(3);
    QCOMPARE(other.brush(), QBrush(Qt::green));
    QCOMPARE(other.pen(), QPen(Qt::blue));
}

void tst_ShapeBase::pointAndRectTests()
{
    AbstractGraphicShapeItem line;
    QPainterPath path(QPointF(10, 50));
    path.lineTo(90, 50);
    line.setOutlinePath(path);
    line.setBoundary(path.boundingRect());

    // No hit band yet: a horizontal line still has a height of one unit.
    QVERIFY(line.collidesWithRect(QRectF(40, 50.5, 5, 5), Qt::IntersectsItemShape));
    QVERIFY(!line.collidesWithRect(QRectF(40, 51.5, 5, 5), Qt::IntersectsItemShape));

    line.rebuildHitPath();
    QVERIFY(line.collidesWithPoint(QPointF(50, 52.5), Qt::IntersectsItemShape));
    QVERIFY(!line.collidesWithPoint(QPointF(50, 54), Qt::IntersectsItemShape));
}

void tst_ShapeBase::rectTestsAlikeBeforeTheBandIsBuilt_data()
{
    QTest::addColumn<QPainterPath>("outline");
    QTest::addColumn<QRectF>("rect");
    QPainterPath square;
    square.addRect(20, 20, 40, 40);
    QPainterPath ellipse;
    ellipse.addEllipse(20, 20, 40, 40);
    QPainterPath open(QPointF(20, 20));
    open.lineTo(60, 25);
    open.lineTo(30, 60);
    QPainterPath line(QPointF(20, 40));
    line.lineTo(60, 40);
    const QList<QPair<const char*, QPainterPath>> outlines { { "square", square }, { "ellipse", ellipse }, { "open", open }, { "line", line } };
    const QList<QPair<const char*, QRectF>> rects {
        { "around", QRectF(0, 0, 100, 100) },     { "inside", QRectF(30, 30, 5, 5) },        { "over an edge", QRectF(10, 30, 15, 5) },
        { "in a corner", QRectF(18, 18, 4, 4) },  { "touching", QRectF(60, 30, 5, 5) },       { "within the band", QRectF(61, 30, 1, 5) },
        { "beyond the band", QRectF(70, 30, 5, 5) }, { "of no width", QRectF(40, 10, 0, 80) },
    };
    for (const auto& outline : outlines) {
        for (const auto& rect : rects)
            QTest::addRow("%s, %s", outline.first, rect.first) << outline.second << rect.second;
    }
}

// A rubber band over an item whose band was never built finds what it finds
// once the band is there.
void tst_ShapeBase::rectTestsAlikeBeforeTheBandIsBuilt()
{
    QFETCH(QPainterPath, outline);
    QFETCH(QRectF, rect);
    AbstractGraphicShapeItem built;
    built.setOutlinePath(outline);
    built.rebuildHitPath();
    QVERIFY(!built.hitPath().isEmpty());
    for (int mode = Qt::ContainsItemShape; mode <= Qt::IntersectsItemBoundingRect; ++mode) {
        // A test may build the band: a fresh item for each.
        AbstractGraphicShapeItem fresh;
        fresh.setOutlinePath(outline);
        fresh.rebuildHitPath();
        QCOMPARE(fresh.collidesWithRect(rect, Qt::ItemSelectionMode(mode)), built.collidesWithRect(rect, Qt::ItemSelectionMode(mode)));
    }
}

void tst_ShapeBase::boundaryNotifications()
{
    GraphicItem item;
    QSignalSpy x(&item, &GraphicObject::xChanged);
    QSignalSpy width(&item, &GraphicItem::widthChanged);
    QSignalSpy height(&item, &GraphicItem::heightChanged);
    QSignalSpy boundary(&item, &GraphicItem::boundaryChanged);
    item.setBoundary(QRectF(0, 0, 10, 10));
    QCOMPARE(boundary.count(), 1);
    item.setBoundary(QRectF(0, 0, 10, 10));
    QCOMPARE(boundary.count(), 1);
    item.setBoundary(QRectF(0, 0, 20, 10));
    QCOMPARE(boundary.count(), 2);
    QCOMPARE(width.count(), 2);
    QCOMPARE(height.count(), 1);
    QCOMPARE(x.count(), 0);

    // Stored only: no effect on geometry.
    item.setRotation(45);
    item.setZ(3);
    QCOMPARE(item.boundary(), QRectF(0, 0, 20, 10));
}

void tst_ShapeBase::gidsAndCopies()
{
    AbstractGraphicShapeItem source;
    source.setUserId(7);
    source.setSelected(true);
    source.setTimestamp(123);
    QVERIFY(!source.gid().isEmpty());
    bool ok = false;
    source.gid().toLongLong(&ok);
    QVERIFY(ok);

    AbstractGraphicShapeItem copy(source);
    QVERIFY(copy.selected());
    QCOMPARE(copy.userId(), 0);
    QVERIFY(copy.timestamp() != 123);
}

QTEST_MAIN(tst_ShapeBase)
#include "tst_shapebase.moc"
