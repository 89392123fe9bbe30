// Items written to their wire messages and rebuilt from the bytes, checked
// through the generated message classes.
#include "graphics/graphicarrowline.h"
#include "graphics/graphicellipseitem.h"
#include "graphics/graphicimage.h"
#include "graphics/graphiclineitem.h"
#include "graphics/graphiclinesegmentitem.h"
#include "graphics/graphicmarkitem.h"
#include "graphics/graphicpenitem.h"
#include "graphics/graphicrectitem.h"
#include "graphics/graphictextitem.h"
#include "inputlimits.h"
#include "proto/whiteboard.pb.h"
#include "relay/wireaction.h"
#include "scene/graphicscene.h"
#include "scene/itemcodec.h"
#include "scene/itemkind.h"

#include <QRegularExpression>

#include <QFontMetricsF>
#include <QPainter>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace whiteboard;
namespace wire = im::whiteboard;

namespace {

enum Kind { Rect, RectFilled, Ellipse, Image, Line, Arrow, Segment, Pen, Text };
using Item = std::unique_ptr<AbstractGraphicShapeItem>;

Item make(int kind, GraphicScene* scene)
{
    switch (kind) {
    case Rect:
    case RectFilled: return std::make_unique<GraphicRectItem>(scene);
    case Ellipse: return std::make_unique<GraphicEllipseItem>(scene);
    case Image: return std::make_unique<GraphicImage>(QString(), scene);
    case Line: return std::make_unique<GraphicLineItem>(scene);
    case Arrow: return std::make_unique<GraphicArrowLineItem>(scene);
    case Segment: return std::make_unique<GraphicLineSegmentItem>(scene);
    case Pen: return std::make_unique<GraphicPenItem>(scene);
    default: return std::make_unique<GraphicTextItem>(QString(), QFont(), scene);
    }
}

QPainterPath polyline(const QList<QPointF>& points)
{
    QPainterPath path(points.first());
    for (qsizetype i = 1; i < points.size(); ++i)
        path.lineTo(points[i]);
    return path;
}

void setOutline(AbstractGraphicShapeItem* item, const QPainterPath& path)
{
    item->setOutlinePath(path);
    item->rebuildHitPath();
    item->setBoundary(path.boundingRect());
}

QFont textFont()
{
    QFont font;
    font.setPixelSize(20);
    font.setFamilies({ QStringLiteral("Sans Serif"), QStringLiteral("Serif") });
    font.setWeight(QFont::DemiBold); // above the bold threshold: arrives as Bold
    font.setItalic(true);
    font.setUnderline(true);
    font.setStretch(150);
    font.setWordSpacing(2.5);
    return font;
}

// A finished item of `kind` whose state differs from a new one's.
Item madeItem(int kind, GraphicScene* scene)
{
    Item item = make(kind, scene);
    item->setUserId(42);
    item->setTimestamp(1700000000123LL);
    item->setOpacity(0.3);
    if (kind != Image) // an image has no styles on the wire
        item->setPen(QPen(QColor("#3366cc"), 3, Qt::SolidLine, Qt::RoundCap, Qt::BevelJoin));
    const QPointF a(10.1, 20.2), b(90.7, 60.3);
    QPainterPath path;
    switch (kind) {
    case RectFilled:
        item->setPen(QPen(Qt::NoPen));
        item->setBrush(QBrush(QColor("#aa5500")));
        Q_FALLTHROUGH();
    case Rect: path.addRect(QRectF(a, b)); break;
    case Image: {
        QImage picture(4, 4, QImage::Format_ARGB32);
        picture.fill(Qt::darkCyan);
        static_cast<GraphicImage*>(item.get())->setImageKey(scene->addImage(picture));
        path.addRect(QRectF(a, b));
        break;
    }
    case Ellipse: path.addEllipse(QRectF(a, b)); break;
    case Line: path = polyline({ a, QPointF(200.7, a.y()) }); break; // horizontal: height 0 on receipt
    case Arrow:
        path = polyline({ a, b });
        path.addPath(static_cast<GraphicArrowLineItem*>(item.get())->buildHead(a, b, 0));
        break;
    case Segment: path = polyline({ a, b, QPointF(90.9, 20.2) }); break;
    case Pen: path = polyline({ { 10.5, 20.25 }, { 30.125, 40 }, { 50, 60.5 } }); break;
    case Text: {
        auto* text = static_cast<GraphicTextItem*>(item.get());
        text->setText(QStringLiteral("Hello"));
        text->setFont(textFont());
        text->setAlignment(4);
        text->layoutAt(a);
        return item;
    }
    }
    setOutline(item.get(), path);
    return item;
}

// Equal to float precision.
bool near(double a, double b) { return qAbs(a - b) < 1e-4; }
bool near(const QRectF& a, const QRectF& b)
{
    return near(a.x(), b.x()) && near(a.y(), b.y()) && near(a.width(), b.width()) && near(a.height(), b.height());
}
bool near(const QPainterPath& a, const QPainterPath& b)
{
    bool same = a.elementCount() == b.elementCount();
    for (int i = 0; same && i < a.elementCount(); ++i)
        same = a.elementAt(i).type == b.elementAt(i).type && near(a.elementAt(i).x, b.elementAt(i).x)
            && near(a.elementAt(i).y, b.elementAt(i).y);
    return same;
}

template <class Message>
Message decoded(GraphicItem& item)
{
    Message message;
    if (!message.ParseFromString(ItemCodec::encode(item).toStdString()))
        qWarning("the encoded entry does not parse");
    return message;
}

template <class Message>
QByteArray bytesOf(const Message& message) { return QByteArray::fromStdString(message.SerializeAsString()); }

} // namespace

class tst_Serialization : public QObject
{
    Q_OBJECT

    std::unique_ptr<GraphicScene> scene;

    static void addKinds()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<int>("listCase");
        QTest::newRow("rectangle") << int(Rect) << int(wire::GraphicAction::kRectdata);
        QTest::newRow("filled rectangle") << int(RectFilled) << int(wire::GraphicAction::kRectdata);
        QTest::newRow("ellipse") << int(Ellipse) << int(wire::GraphicAction::kEllipsedata);
        QTest::newRow("image") << int(Image) << int(wire::GraphicAction::kImagedata);
        QTest::newRow("line") << int(Line) << int(wire::GraphicAction::kLinedata);
        QTest::newRow("arrow") << int(Arrow) << int(wire::GraphicAction::kArrowdata);
        QTest::newRow("segment") << int(Segment) << int(wire::GraphicAction::kPolylinedata);
        QTest::newRow("pen") << int(Pen) << int(wire::GraphicAction::kPathdata);
        QTest::newRow("text") << int(Text) << int(wire::GraphicAction::kTextdata);
    }

private slots:
    void initTestCase() { scene = std::make_unique<GraphicScene>(); }
    void cleanupTestCase() { scene.reset(); }

    void roundTripOnANewItem_data() { addKinds(); }
    void roundTripOnANewItem()
    {
        QFETCH(int, kind);
        const Item sent = madeItem(kind, scene.get());
        const Item got = make(kind, scene.get());
        // Through the items' own face, which every kind shares.
        got->deserialize(sent->serialize());

        QCOMPARE(got->gid(), sent->gid());
        QCOMPARE(got->userId(), 42);
        QCOMPARE(got->timestamp(), 1700000000123LL);
        QCOMPARE(float(got->opacity()), 0.3f);
        QVERIFY(near(got->boundary(), sent->boundary()));
        QVERIFY(near(got->outlinePath(), sent->outlinePath()));
        QCOMPARE(got->pen(), sent->pen());
        QCOMPARE(got->brush(), sent->brush());
        if (kind == Arrow)
            QVERIFY(got->hitPath().isEmpty()); // the arrow keeps its old hit path
        else
            QVERIFY(near(got->hitPath().boundingRect(), sent->hitPath().boundingRect()));

        if (kind == Text) {
            const auto* text = static_cast<GraphicTextItem*>(got.get());
            const QFont font = text->font();
            QCOMPARE(text->text(), QStringLiteral("Hello"));
            QCOMPARE(text->alignment(), 4);
            QCOMPARE(font.weight(), QFont::Bold);
            QVERIFY(font.italic() && font.underline() && !font.strikeOut() && !font.overline());
            QCOMPARE(font.pixelSize(), 20);
            QCOMPARE(font.stretch(), 150);
            QCOMPARE(font.wordSpacing(), 2.5);
            QCOMPARE(font.families(), textFont().families());
        }
    }

    void writeAddsOneEntry_data() { addKinds(); }
    void writeAddsOneEntry()
    {
        QFETCH(int, kind);
        QFETCH(int, listCase);
        const Item item = madeItem(kind, scene.get());
        wire::GraphicAction action;
        // An update: an image's add carries its pixels beside its state.
        action.set_graphicactiontype(wire::GraphicActionUpdate);
        ItemCodec::write(*item, &action);
        QCOMPARE(int(action.actiondata_case()), listCase);

        // The list message of that case holds exactly the entry that
        // encode() makes.
        const auto* reflection = action.GetReflection();
        const auto& list = reflection->GetMessage(action, action.GetDescriptor()->FindFieldByNumber(listCase));
        const auto* data = list.GetDescriptor()->FindFieldByName("data");
        QCOMPARE(list.GetReflection()->FieldSize(list, data), 1);
        QCOMPARE(bytesOf(list.GetReflection()->GetRepeatedMessage(list, data, 0)), ItemCodec::encode(*item));

        // The relay reads the same bytes for the author it authorises and
        // refuses an action carrying anyone else's entry.
        wire::GraphicAction received;
        QVERIFY(received.ParseFromString(action.SerializeAsString()));
        QCOMPARE(relay::WireAction::author(received), qint64(item->userId()));
        QVERIFY(relay::WireAction::onlyOf(received, item->gid().toStdString(), item->userId()));
        QVERIFY(!relay::WireAction::onlyOf(received, item->gid().toStdString(), item->userId() + 1));
    }

    void garbageChangesNothing_data() { addKinds(); }
    void garbageChangesNothing()
    {
        QFETCH(int, kind);
        const Item item = madeItem(kind, scene.get());
        const QString gid = item->gid();
        const QPen pen = item->pen();
        const QRectF boundary = item->boundary();
        QTest::ignoreMessage(QtWarningMsg, "parse from data failed.");
        ItemCodec::decode(*item, QByteArray("\x0a\x10truncated", 11));
        QCOMPARE(item->gid(), gid);
        QCOMPARE(item->pen(), pen);
        QCOMPARE(item->boundary(), boundary);
    }

    // Each row of the kind table writes its items into the list that the
    // receiving side reads as that kind, and reads back what it writes.
    void everyKindTravelsInItsOwnList_data()
    {
        QTest::addColumn<int>("type");
        const QMetaEnum types = QMetaEnum::fromType<GraphicItem::GraphicType>();
        for (int i = 0; i < types.keyCount(); ++i) {
            if (ItemKind::ofType(types.value(i)))
                QTest::newRow(types.key(i)) << types.value(i);
        }
    }
    void everyKindTravelsInItsOwnList()
    {
        QFETCH(int, type);
        const ItemKind* kind = ItemKind::ofType(type);
        const std::unique_ptr<GraphicItem> sent(kind->make(scene.get()));
        QCOMPARE(sent->type(), type);
        // Something drawn: a polyline without a vertex is not applied.
        setOutline(static_cast<AbstractGraphicShapeItem*>(sent.get()), polyline({ { 1, 2 }, { 30, 40 } }));
        wire::GraphicAction action;
        action.set_graphicactiontype(wire::GraphicActionAdd);
        ItemCodec::write(*sent, &action);
        QCOMPARE(ItemKind::ofList(action.actiondata_case()), kind);
        const std::unique_ptr<GraphicItem> got(kind->make(scene.get()));
        QVERIFY(ItemCodec::decode(*got, ItemCodec::encode(*sent)));
        QCOMPARE(got->gid(), sent->gid());
    }

    // A pointer mark has no row in the kind table: it never goes on the wire
    // as an item, and bytes of any item leave it as it is.
    void markHasNoWireForm()
    {
        GraphicMarkItem mark(QStringLiteral("Bob"), QFont(), scene.get());
        mark.setUserId(7);
        QVERIFY(ItemCodec::encode(mark).isEmpty());
        wire::GraphicAction action;
        action.set_graphicactiontype(wire::GraphicActionAdd);
        ItemCodec::write(mark, &action);
        QCOMPARE(action.actiondata_case(), wire::GraphicAction::ACTIONDATA_NOT_SET);
        const Item rect = madeItem(Rect, scene.get());
        const QString gid = mark.gid();
        QVERIFY(!ItemCodec::decode(mark, ItemCodec::encode(*rect)));
        QCOMPARE(mark.gid(), gid);
        QCOMPARE(mark.userId(), 7);
    }

    // The receiver paints with the styles the sender paints with, whatever
    // it painted with before.
    void receiverTakesTheSendersStyles_data()
    {
        QTest::addColumn<QBrush>("brush");
        QTest::addColumn<QPen>("pen");
        QTest::addColumn<QBrush>("brushBefore");
        QTest::addColumn<QPen>("penBefore");
        const QBrush blue(QColor("#0000ff"));
        const QPen red(QBrush(QColor("#ff0000")), 3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
        QTest::newRow("filled and outlined") << blue << red << QBrush(Qt::NoBrush) << QPen(Qt::NoPen);
        QTest::newRow("outline only, onto a filled item") << QBrush(Qt::NoBrush) << red << blue << QPen(Qt::NoPen);
        QTest::newRow("fill only, onto an outlined item") << blue << QPen(Qt::NoPen) << QBrush(Qt::NoBrush) << red;
    }

    void receiverTakesTheSendersStyles()
    {
        QFETCH(QBrush, brush);
        QFETCH(QPen, pen);
        QFETCH(QBrush, brushBefore);
        QFETCH(QPen, penBefore);
        GraphicRectItem sent(scene.get());
        sent.setBrush(brush);
        sent.setPen(pen);
        GraphicRectItem got(scene.get());
        got.setBrush(brushBefore);
        got.setPen(penBefore);
        ItemCodec::decode(got, ItemCodec::encode(sent));
        QCOMPARE(got.brush(), brush);
        QCOMPARE(got.pen(), pen);
    }

    void dashedLineArrivesSolid_data()
    {
        QTest::addColumn<QList<qreal>>("dashes");
        QTest::addColumn<QString>("wireDashes");
        QTest::newRow("dash line") << QList<qreal>() << QStringLiteral("4,2");
        QTest::newRow("custom") << QList<qreal>({ 1.5, 3.1234567 }) << QStringLiteral("1.5,3.12346");
    }
    void dashedLineArrivesSolid()
    {
        QFETCH(QList<qreal>, dashes);
        QFETCH(QString, wireDashes);
        GraphicLineItem sent(scene.get());
        setOutline(&sent, polyline({ { 0, 0 }, { 50, 50 } }));
        QPen pen(QColor("#123456"), 5, Qt::DashLine, Qt::SquareCap, Qt::MiterJoin);
        if (!dashes.isEmpty())
            pen.setDashPattern(dashes);
        sent.setPen(pen);
        QCOMPARE(QString::fromStdString(decoded<wire::Line>(sent).strokestyle().dashpattern()), wireDashes);

        GraphicLineItem got(scene.get());
        ItemCodec::decode(got, ItemCodec::encode(sent));
        QCOMPARE(got.pen(), QPen(QColor("#123456"), 5, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin));
    }

    void lineWithoutTwoElementsKeepsTheReceiversGeometry_data()
    {
        QTest::addColumn<QPainterPath>("path");
        QTest::newRow("empty") << QPainterPath();
        QTest::newRow("one element") << QPainterPath(QPointF(3, 4));
        QTest::newRow("three elements") << polyline({ { 0, 0 }, { 5, 5 }, { 9, 0 } });
    }
    void lineWithoutTwoElementsKeepsTheReceiversGeometry()
    {
        QFETCH(QPainterPath, path);
        GraphicLineItem sent(scene.get());
        sent.setOutlinePath(path);
        const auto message = decoded<wire::Line>(sent);
        QVERIFY(!message.has_startpoint() && !message.has_endpoint());

        GraphicLineItem got(scene.get());
        const QPainterPath old = polyline({ { 100, 100 }, { 150, 120 } });
        setOutline(&got, old);
        ItemCodec::decode(got, ItemCodec::encode(sent));
        QCOMPARE(got.gid(), sent.gid());
        QCOMPARE(got.outlinePath(), old);
        QCOMPARE(got.boundary(), QRectF(100, 100, 50, 20));
    }

    void textWithALineBreakArrivesOneLineHigh()
    {
        GraphicTextItem sent(QStringLiteral("first\nsecond line"), textFont(), scene.get());
        sent.setBoundary(QRectF(5, 6, 300, 200));
        GraphicTextItem got(QString(), QFont(), scene.get());
        ItemCodec::decode(got, ItemCodec::encode(sent));
        const QFontMetricsF metrics(got.font());
        QVERIFY(near(got.boundary(), QRectF(5, 6, metrics.horizontalAdvance(sent.text()), metrics.height())));
    }

    void partialFrameReadsMissingPartsAsZero_data()
    {
        QTest::addColumn<int>("parts");
        QTest::addColumn<QRectF>("frame");
        QTest::newRow("width only") << 2 << QRectF(0, 0, 25, 0);
        QTest::newRow("height only") << 4 << QRectF(0, 0, 0, 7);
        QTest::newRow("leftpos only") << 1 << QRectF(3, 4, 0, 0);
        QTest::newRow("none keeps the old frame") << 0 << QRectF(50, 50, 10, 10);
    }
    void partialFrameReadsMissingPartsAsZero()
    {
        QFETCH(int, parts);
        QFETCH(QRectF, frame);
        wire::Rect message;
        if (parts & 1) {
            message.mutable_leftpos()->set_x(3);
            message.mutable_leftpos()->set_y(4);
        }
        if (parts & 2)
            message.set_width(25);
        if (parts & 4)
            message.set_heigth(7);
        GraphicRectItem item(scene.get());
        QPainterPath old;
        old.addRect(QRectF(50, 50, 10, 10));
        setOutline(&item, old);
        ItemCodec::decode(item, bytesOf(message));
        QCOMPARE(item.boundary(), frame);
    }

    void pathKeepsSixSignificantDigits()
    {
        GraphicPenItem sent(scene.get());
        QCOMPARE(decoded<wire::Path>(sent).has_path(), false); // nothing drawn, no path

        setOutline(&sent, polyline({ { 1234.567, 0.000123456789 }, { 1234567, 2 } }));
        QCOMPARE(QString::fromStdString(decoded<wire::Path>(sent).path()),
                 QStringLiteral("M 1234.57 0.000123457 L 1.23457e+06 2 z"));
        GraphicPenItem got(scene.get());
        // The exponent form reads back, and is then held at the page margin.
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^clamped pen stroke .*: coordinates$")));
        ItemCodec::decode(got, ItemCodec::encode(sent));
        QCOMPARE(got.outlinePath().elementCount(), 2);
        QCOMPARE(got.outlinePath().elementAt(0).x, double(1234.57f));
        QCOMPARE(got.outlinePath().elementAt(1).x, InputLimits::kMaxCoordinate);
    }

    void polylineWithoutPointsIsIgnored()
    {
        wire::Polyline message;
        message.mutable_baseinfo()->set_gid("777");
        message.mutable_strokestyle()->set_width(9);
        GraphicLineSegmentItem item(scene.get());
        setOutline(&item, polyline({ { 1, 1 }, { 8, 9 } }));
        const QString gid = item.gid();
        const QPen pen = item.pen();
        ItemCodec::decode(item, bytesOf(message));
        QCOMPARE(item.gid(), gid);
        QCOMPARE(item.pen(), pen);
        QCOMPARE(item.boundary(), QRectF(1, 1, 7, 8));
    }

    void imageTravelsBetweenScenes()
    {
        QImage picture(40, 30, QImage::Format_ARGB32);
        picture.fill(QColor("#80102030"));
        QPainter(&picture).fillRect(5, 5, 10, 10, QColor("#ff00ff00"));
        GraphicScene here, there;
        GraphicImage sent(here.addImage(picture), &here);
        GraphicImage got(QString(), &there);
        // The pixels travel with an add, and are decoded on the pool of the
        // receiving scene.
        wire::GraphicAction action;
        action.set_graphicactiontype(wire::GraphicActionAdd);
        ItemCodec::write(sent, &action);
        ItemCodec::decode(got, QByteArray::fromStdString(action.imagedata().data(0).SerializeAsString()));
        QTRY_COMPARE(got.imageKey(), sent.imageKey());
        const QImage* arrived = there.imageByKey(got.imageKey());
        QVERIFY(arrived);
        QCOMPARE(*arrived, picture);
    }
};

QTEST_MAIN(tst_Serialization)
#include "tst_serialization.moc"
