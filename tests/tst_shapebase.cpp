// The item base: default painting, hit tests, geometry notifications and identity.
#include "graphics/abstractgraphicshapeitem.h"

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
    QCOMPARE(item.color(), QColor(Qt::green));
    QSignalSpy colorSpy(&item, &AbstractGraphicShapeItem::colorChanged);
    item.setColor(Qt::red);
    item.setColor(Qt::red);
    QCOMPARE(colorSpy.count(), 1);
    QCOMPARE(item.brush().color(), QColor(Qt::red));
    QCOMPARE(item.pen().color(), QColor(Qt::blue));
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
