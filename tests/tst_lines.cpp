// Lines, arrows, polylines and pen strokes: their creation gestures, hit
// tests, painting and the corner drag of their controllers. Items are driven
// directly with pointer events at view positions of a real view at scale 1,
// where view pixels are scene units.
#include "testsupport.h"

#include "graphics/graphicarrowline.h"
#include "graphics/graphiccontroller.h"
#include "graphics/graphiclineitem.h"
#include "graphics/graphiclinesegmentitem.h"
#include "graphics/graphicpaths.h"
#include "graphics/graphicpenitem.h"

#include <QHoverEvent>
#include <QMouseEvent>
#include <QPainter>

#include <cmath>

using namespace whiteboard;

namespace {

// Delivers one pointer event to an item or a controller; true if accepted.
template <typename Target>
bool send(Target* target, QEvent::Type type, QPointF pos, Qt::MouseButton button = Qt::LeftButton)
{
    const Qt::MouseButtons buttons = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::MouseButtons(button);
    QMouseEvent event(type, pos, pos, type == QEvent::MouseMove ? Qt::NoButton : button, buttons, Qt::NoModifier);
    if (type == QEvent::MouseButtonPress)
        target->mousePressEvent(&event);
    else if (type == QEvent::MouseMove)
        target->mouseMoveEvent(&event);
    else
        target->mouseReleaseEvent(&event);
    return event.isAccepted();
}

bool press(GraphicItem* item, QPointF pos, Qt::MouseButton button = Qt::LeftButton)
{
    return send(item, QEvent::MouseButtonPress, pos, button);
}

void hover(GraphicItem* item, QPointF pos)
{
    QHoverEvent event(QEvent::HoverMove, pos, pos, pos);
    item->hoverMoveEvent(&event);
}

// A creation drag as the scene forwards it: press, moves, release.
void draw(GraphicItem* item, const QList<QPointF>& points)
{
    item->setIsEditMode(true);
    send(item, QEvent::MouseButtonPress, points.first());
    for (const QPointF& p : points.mid(1))
        send(item, QEvent::MouseMove, p);
    send(item, QEvent::MouseButtonRelease, points.last());
}

QImage blank()
{
    QImage image(400, 300, QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    return image;
}

} // namespace

class TestLines : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void penRecordsOnePiecePerMove();
    void polylineCommitsPiecesClickByClick();
    void hitTolerance_data();
    void hitTolerance();
    void arrowHeadIsNotHit();
    void arrowOfZeroLength();
    void strokeCornerDragScalesAboutAnchor_data();
    void strokeCornerDragScalesAboutAnchor();
    void arrowHeadIsFilled();
    void selectedStrokePaintsDarker();
    void cachedStrokePaintsThroughRaster();

private:
    std::unique_ptr<ViewFixture> m_fixture;
    GraphicScene* m_scene = nullptr;
};

void TestLines::initTestCase()
{
    m_fixture = std::make_unique<ViewFixture>();
    m_scene = m_fixture->scene;
    QCOMPARE(m_scene->mapToScene(QPointF(120, 80)), QPointF(120, 80));
}

void TestLines::penRecordsOnePiecePerMove()
{
    GraphicPenItem pen(m_scene);
    pen.setIsEditMode(true);
    QVERIFY(press(&pen, QPointF(10, 10)));
    // While drawing, the stroke claims every point of the board.
    QVERIFY(pen.collidesWithPoint(QPointF(900, 700), Qt::IntersectsItemShape));

    const QList<QPointF> moves = { { 20, 10 }, { 30, 15 }, { 31, 15 }, { 45, 40 }, { 60, 40 } };
    for (const QPointF& p : moves)
        QVERIFY(send(&pen, QEvent::MouseMove, p));
    QVERIFY(pen.hitPath().isEmpty());
    QVERIFY(send(&pen, QEvent::MouseButtonRelease, moves.last()));

    const QPainterPath path = pen.outlinePath();
    QCOMPARE(path.elementCount(), moves.size() + 1);
    QCOMPARE(QPointF(path.elementAt(0)), QPointF(10, 10));
    for (int i = 0; i < moves.size(); ++i)
        QCOMPARE(QPointF(path.elementAt(i + 1)), moves.at(i));
    QCOMPARE(pen.boundary(), QRectF(10, 10, 50, 30));
    QVERIFY(!pen.isEditMode());
    QVERIFY(pen.collidesWithPoint(QPointF(25, 12), Qt::IntersectsItemShape));
    QVERIFY(!pen.collidesWithPoint(QPointF(900, 700), Qt::IntersectsItemShape));

    // A press and release without a move makes no stroke at all.
    GraphicPenItem dot(m_scene);
    draw(&dot, { QPointF(5, 5) });
    QCOMPARE(dot.outlinePath().elementCount(), 0);
    QVERIFY(dot.pathString().isEmpty());
}

void TestLines::polylineCommitsPiecesClickByClick()
{
    GraphicLineSegmentItem segment(m_scene);
    segment.setIsEditMode(true);
    QVERIFY(press(&segment, QPointF(10, 10)));
    hover(&segment, QPointF(50, 10));
    QVERIFY(press(&segment, QPointF(50, 10)));
    hover(&segment, QPointF(50, 60));
    QVERIFY(press(&segment, QPointF(50, 60)));
    hover(&segment, QPointF(90, 90));
    QCOMPARE(segment.currentSegment().elementCount(), 2);
    QVERIFY(press(&segment, QPointF(90, 90), Qt::RightButton));

    // Each committed piece is its own pair: the middle vertex comes twice and
    // the uncommitted rubber band to (90, 90) is gone.
    const QPainterPath path = segment.outlinePath();
    const QList<QPointF> expected = { { 10, 10 }, { 50, 10 }, { 50, 10 }, { 50, 60 } };
    QCOMPARE(path.elementCount(), expected.size());
    for (int i = 0; i < expected.size(); ++i)
        QCOMPARE(QPointF(path.elementAt(i)), expected.at(i));
    QVERIFY(segment.currentSegment().isEmpty());
    QVERIFY(!segment.isEditMode());
    QCOMPARE(segment.boundary(), QRectF(10, 10, 40, 50));
    QVERIFY(segment.collidesWithPoint(QPointF(30, 12), Qt::IntersectsItemShape));
    QVERIFY(!segment.collidesWithPoint(QPointF(80, 80), Qt::IntersectsItemShape));

    // A finished polyline no longer takes left presses as vertices.
    QVERIFY(press(&segment, QPointF(30, 11)));
    QCOMPARE(segment.outlinePath().elementCount(), expected.size());

    // Finishing before any vertex leaves nothing to hit.
    GraphicLineSegmentItem empty(m_scene);
    empty.setIsEditMode(true);
    QVERIFY(press(&empty, QPointF(40, 40), Qt::RightButton));
    QCOMPARE(empty.outlinePath().elementCount(), 0);
    QVERIFY(empty.hitPath().isEmpty());
}

void TestLines::hitTolerance_data()
{
    QTest::addColumn<bool>("stroke");
    QTest::addColumn<int>("width");
    QTest::addColumn<double>("distance");
    QTest::addColumn<bool>("hit");

    // A line's tolerance is (width + 6) / 2; a stroke's band is 3 wide on
    // each side whatever its width.
    QTest::newRow("line w1 inside") << false << 1 << 3.4 << true;
    QTest::newRow("line w1 outside") << false << 1 << 3.6 << false;
    QTest::newRow("line w20 inside") << false << 20 << 12.9 << true;
    QTest::newRow("line w20 outside") << false << 20 << 13.1 << false;
    QTest::newRow("stroke w20 centre") << true << 20 << 2.0 << true;
    QTest::newRow("stroke w20 within pen") << true << 20 << 8.0 << false;
}

void TestLines::hitTolerance()
{
    QFETCH(bool, stroke);
    QFETCH(int, width);
    QFETCH(double, distance);
    QFETCH(bool, hit);

    std::unique_ptr<AbstractGraphicShapeItem> item;
    if (stroke)
        item = std::make_unique<GraphicPenItem>(m_scene);
    else
        item = std::make_unique<GraphicLineItem>(m_scene);
    QPen pen = item->pen();
    pen.setWidth(width);
    item->setPen(pen);

    item->setIsEditMode(true);
    press(item.get(), QPointF(100, 100));
    send(item.get(), QEvent::MouseMove, QPointF(200, 100));
    send(item.get(), QEvent::MouseMove, QPointF(300, 100));
    if (!stroke) {
        // While drawn, a horizontal line is as thick as its pen.
        QCOMPARE(item->boundary().height(), double(width));
    }
    send(item.get(), QEvent::MouseButtonRelease, QPointF(300, 100));

    QCOMPARE(item->collidesWithPoint(QPointF(150, 100 + distance), Qt::IntersectsItemShape), hit);
    QCOMPARE(item->collidesWithPoint(QPointF(150, 100 - distance), Qt::IntersectsItemShape), hit);
}

void TestLines::arrowHeadIsNotHit()
{
    GraphicArrowLineItem arrow(m_scene);
    draw(&arrow, { QPointF(100, 200), QPointF(150, 200), QPointF(200, 200) });

    // The tip lies capSize beyond the end of the shaft.
    const QPainterPath path = arrow.outlinePath();
    QVERIFY(path.elementCount() > 2);
    QCOMPARE(QPointF(path.elementAt(1)), QPointF(200, 200));
    const QPointF tip = path.elementAt(2);
    QVERIFY(std::abs(tip.x() - 208.0) < 0.5);
    QVERIFY(std::abs(tip.y() - 200.0) < 0.5);
    QVERIFY(arrow.boundary().right() > 207.0);
    QVERIFY(!arrow.hitPath().isEmpty());

    QVERIFY(arrow.collidesWithPoint(QPointF(150, 203), Qt::IntersectsItemShape));
    QVERIFY(arrow.collidesWithPoint(QPointF(202, 200), Qt::IntersectsItemShape));
    QVERIFY(!arrow.collidesWithPoint(QPointF(206, 200), Qt::IntersectsItemShape));
    QVERIFY(!arrow.collidesWithPoint(tip, Qt::IntersectsItemShape));
    // The head does count for the bounding rectangle.
    QVERIFY(arrow.collidesWithPoint(QPointF(206, 200), Qt::IntersectsItemBoundingRect));

    // The controller's head point sits where the head begins.
    arrow.controller()->update();
    QCOMPARE(arrow.controller()->controlPoint(GraphicDefine::GCP_Custom + 2).position, tip);
}

void TestLines::arrowOfZeroLength()
{
    GraphicArrowLineItem arrow(m_scene);
    draw(&arrow, { QPointF(100, 100), QPointF(100, 100) });

    const QPainterPath path = arrow.outlinePath();
    QVERIFY(path.elementCount() > 0);
    for (int i = 0; i < path.elementCount(); ++i) {
        QVERIFY(std::isfinite(path.elementAt(i).x));
        QVERIFY(std::isfinite(path.elementAt(i).y));
    }
    // Taken as pointing down by one unit: the head hangs capSize below.
    QCOMPARE(arrow.boundary(), QRectF(96, 100, 8, 8));
}

void TestLines::strokeCornerDragScalesAboutAnchor_data()
{
    QTest::addColumn<QPointF>("target");
    QTest::addColumn<QRectF>("bounds");

    // A stroke of 100 x 50 at (100, 100), dragged by its bottom right corner.
    QTest::newRow("doubled") << QPointF(300, 150) << QRectF(100, 100, 200, 100);
    QTest::newRow("past the anchor") << QPointF(50, 150) << QRectF(100, 100, 1, 0.5);
    QTest::newRow("vertical only") << QPointF(200, 300) << QRectF(100, 100, 100, 50);
}

void TestLines::strokeCornerDragScalesAboutAnchor()
{
    QFETCH(QPointF, target);
    QFETCH(QRectF, bounds);

    GraphicPenItem stroke(m_scene);
    draw(&stroke, { QPointF(100, 100), QPointF(150, 140), QPointF(200, 150) });
    QCOMPARE(stroke.boundary(), QRectF(100, 100, 100, 50));

    GraphicController* controller = stroke.controller();
    QVERIFY(send(controller, QEvent::MouseButtonPress, QPointF(200, 150)));
    QCOMPARE(controller->activePoint(), int(GraphicDefine::GCP_SizeBottomRight));
    const QPainterPath hitBefore = stroke.hitPath();
    QVERIFY(send(controller, QEvent::MouseMove, QPointF(250, 150)));
    QVERIFY(send(controller, QEvent::MouseMove, target));
    // The outline of the stroke waits for the release.
    QCOMPARE(stroke.hitPath(), hitBefore);
    QVERIFY(send(controller, QEvent::MouseButtonRelease, target));

    const QRectF r = stroke.boundary();
    QVERIFY2(std::abs(r.left() - bounds.left()) < 1e-6 && std::abs(r.top() - bounds.top()) < 1e-6, qPrintable(QString("top left %1 %2").arg(r.left()).arg(r.top())));
    QVERIFY(std::abs(r.width() - bounds.width()) < 1e-6);
    QVERIFY(std::abs(r.height() - bounds.height()) < 1e-6);
    // The scene reads a changed press position as a move of the item.
    QCOMPARE(controller->pressPosition(), target);
    // The hit band follows the new shape from the release on.
    const QPointF end = stroke.outlinePath().elementAt(stroke.outlinePath().elementCount() - 1);
    QVERIFY(stroke.collidesWithPoint(end, Qt::IntersectsItemShape));
    QCOMPARE(stroke.hitPath().boundingRect(), GraphicPaths::strokeOf(stroke.outlinePath()).boundingRect());
}

void TestLines::arrowHeadIsFilled()
{
    GraphicArrowLineItem arrow(m_scene);
    arrow.setPen(QPen(QBrush(Qt::blue), 1));
    arrow.setCapSize(30);
    draw(&arrow, { QPointF(20, 100), QPointF(200, 100) });

    QImage image = blank();
    QPainter painter(&image);
    arrow.paint(&painter);
    painter.end();

    // Head from x 200 to its tip near 230: its inside is the pen's colour.
    QCOMPARE(QColor(image.pixel(212, 106)), QColor(Qt::blue));
    QCOMPARE(QColor(image.pixel(220, 103)), QColor(Qt::blue));
    QCOMPARE(qAlpha(image.pixel(212, 125)), 0);
}

void TestLines::selectedStrokePaintsDarker()
{
    const QColor color(200, 100, 50);
    GraphicPenItem stroke(m_scene);
    stroke.setPen(QPen(QBrush(color, Qt::SolidPattern), 10, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin));
    draw(&stroke, { QPointF(50, 50), QPointF(150, 50), QPointF(250, 60) });

    auto paintedAt = [&stroke](QPoint p) {
        QImage image = blank();
        QPainter painter(&image);
        stroke.paint(&painter);
        painter.end();
        return QColor(image.pixel(p));
    };
    QCOMPARE(paintedAt(QPoint(100, 50)).rgba(), color.rgba());
    stroke.setSelected(true);
    QCOMPARE(paintedAt(QPoint(100, 50)).rgba(), color.darker(110).rgba());
}

void TestLines::cachedStrokePaintsThroughRaster()
{
    GraphicPenItem stroke(m_scene);
    stroke.setPen(QPen(QBrush(Qt::darkGreen, Qt::SolidPattern), 4, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin));
    draw(&stroke, { QPointF(50, 50), QPointF(150, 50), QPointF(250, 90) });
    QVERIFY(stroke.cacheImage().isNull());

    // The raster is built piece by piece during the drawing, then painted.
    GraphicPenItem cached(m_scene);
    cached.setPen(stroke.pen());
    cached.setCache(true);
    draw(&cached, { QPointF(50, 50), QPointF(150, 50), QPointF(250, 90) });
    QCOMPARE(cached.cacheImage().size(), QSize(204, 44));
    QCOMPARE(cached.cacheImageSize(), cached.cacheImage().size());

    QImage image = blank();
    QPainter painter(&image);
    cached.paint(&painter);
    painter.end();
    QCOMPARE(QColor(image.pixel(100, 50)).rgb(), QColor(Qt::darkGreen).rgb());
    QCOMPARE(QColor(image.pixel(200, 70)).rgb(), QColor(Qt::darkGreen).rgb());
    QCOMPARE(qAlpha(image.pixel(100, 80)), 0);
}

QTEST_MAIN(TestLines)
#include "tst_lines.moc"
