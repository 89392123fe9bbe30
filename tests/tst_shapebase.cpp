// The item base: default painting, hit tests, geometry notifications and identity.
#include "graphics/abstractgraphicshapeitem.h"

#include <QPainter>
#include <QPicture>
#include <QSignalSpy>
#include <QTest>

#include <functional>
#include <utility>

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
    void paintsOutlineAsDrawn_data();
    void paintsOutlineAsDrawn();
    void framedOutlines_data();
    void framedOutlines();
    void selectionLook();
    void styleProperties();
    void pointAndRectTests();
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

// Items paint a copy of their outline: the pixels are those of the outline
// drawn as it is, fill rule included, at the view's scale and a thumbnail's.
void tst_ShapeBase::paintsOutlineAsDrawn_data()
{
    QTest::addColumn<QString>("shape");
    QTest::addColumn<bool>("filled");
    QTest::addColumn<Qt::FillRule>("rule");
    QTest::addColumn<double>("scale");
    for (const double scale : { 1.0, 0.11 }) {
        const QByteArray at = scale == 1.0 ? " 1:1" : " thumbnail";
        QTest::newRow("rectangle" + at) << "rectangle" << false << Qt::OddEvenFill << scale;
        QTest::newRow("filled ellipse" + at) << "ellipse" << true << Qt::OddEvenFill << scale;
        QTest::newRow("star, odd-even" + at) << "star" << true << Qt::OddEvenFill << scale;
        QTest::newRow("star, winding" + at) << "star" << true << Qt::WindingFill << scale;
    }
}

void tst_ShapeBase::paintsOutlineAsDrawn()
{
    QFETCH(QString, shape);
    QFETCH(bool, filled);
    QFETCH(Qt::FillRule, rule);
    QFETCH(double, scale);
    QPainterPath path;
    if (shape == QLatin1String("rectangle")) {
        path.addRect(10.5, 12, 37, 30.25);
    } else if (shape == QLatin1String("ellipse")) {
        path.addEllipse(8, 10, 41, 33);
    } else {
        // Crossing itself, so that the two fill rules differ in the middle.
        path.moveTo(30, 5);
        path.lineTo(45, 52);
        path.lineTo(6, 22);
        path.lineTo(54, 22);
        path.lineTo(15, 52);
        path.closeSubpath();
    }
    path.setFillRule(rule);
    AbstractGraphicShapeItem item;
    item.setOutlinePath(path);
    const QPen pen(QColor(0, 0, 139), 3);
    item.setPen(pen);
    item.setBrush(filled ? QBrush(QColor("#c8dcff")) : QBrush(Qt::NoBrush));
    const auto render = [&](const std::function<void(QPainter&)>& draw) {
        QImage image(60, 60, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::white);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.scale(scale, scale);
        draw(painter);
        return image;
    };
    // Twice: later frames paint the same outline again.
    const QImage first = render([&](QPainter& painter) { item.paint(&painter); });
    const QImage again = render([&](QPainter& painter) { item.paint(&painter); });
    const QImage expected = render([&](QPainter& painter) {
        QPen drawn = pen;
        drawn.setJoinStyle(Qt::MiterJoin);
        painter.setPen(drawn);
        painter.setBrush(item.brush());
        painter.drawPath(path);
    });
    QCOMPARE(first, expected);
    QCOMPARE(again, expected);
    QCOMPARE(item.outlinePath(), path);
}

// Outlines made to their size are those addRect(), addEllipse(), moveTo()
// and lineTo() make on an empty path, down to what they refuse.
void tst_ShapeBase::framedOutlines_data()
{
    QTest::addColumn<QRectF>("frame");
    QTest::newRow("frame") << QRectF(10.5, 12, 37, 30.25);
    QTest::newRow("negative size") << QRectF(40, 40, -20, -10);
    QTest::newRow("no width") << QRectF(5, 5, 0, 30);
    QTest::newRow("null") << QRectF(7, 9, 0, 0);
    QTest::newRow("out of range") << QRectF(1e200, 0, 10, 10);
}

void tst_ShapeBase::framedOutlines()
{
    QFETCH(QRectF, frame);
    QPainterPath rect;
    rect.addRect(frame);
    QPainterPath ellipse;
    ellipse.addEllipse(frame);
    QPainterPath segment;
    segment.moveTo(frame.topLeft());
    segment.lineTo(frame.bottomRight());
    for (const auto& [made, plain] : { std::pair(AbstractGraphicShapeItem::rectPath(frame), rect),
                                       std::pair(AbstractGraphicShapeItem::ellipsePath(frame), ellipse),
                                       std::pair(AbstractGraphicShapeItem::segmentPath(frame.topLeft(), frame.bottomRight()), segment) }) {
        QCOMPARE(made, plain);
        QCOMPARE(made.elementCount(), plain.elementCount());
        QCOMPARE(made.boundingRect(), plain.boundingRect());
        // Added to, as a drag's dirty path is: the next subpath starts anew.
        QPainterPath grownMade = made;
        grownMade.lineTo(1, 2);
        QPainterPath grownPlain = plain;
        grownPlain.lineTo(1, 2);
        QCOMPARE(grownMade, grownPlain);
    }
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
