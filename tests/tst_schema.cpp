// The wire schema: fixed field numbers, explicit presence, and enumeration
// values that equal the toolkit's.
#include "proto/whiteboard.pb.h"

#include <QTest>

using namespace im::whiteboard;

class tst_Schema : public QObject
{
    Q_OBJECT

private slots:
    void fixedFieldNumbers();
    void enumerationsEqualTheToolkits();
    void nestedRoundTrip();
    void emptyEnvelopeParsesAsAnEmptyAction();
};

void tst_Schema::fixedFieldNumbers()
{
    QCOMPARE(int(TransferData::kMulti), 2);
    QCOMPARE(int(GraphicAction::kLinedata), 5);
    QCOMPARE(int(GraphicAction::kPolylinedata), 6);
    QCOMPARE(int(GraphicAction::kRectdata), 7);
    QCOMPARE(int(GraphicAction::kTextdata), 8);
    QCOMPARE(int(GraphicAction::kEllipsedata), 9);
    QCOMPARE(int(GraphicAction::kPathdata), 10);
    QCOMPARE(int(GraphicAction::kImagedata), 11);
    QCOMPARE(int(GraphicAction::kArrowdata), 12);
    QCOMPARE(int(GraphicAction::kCanvasdata), 13);
}

void tst_Schema::enumerationsEqualTheToolkits()
{
    QCOMPARE(int(StrokeStyle_LineCapStyle_FlatCap), int(Qt::FlatCap));
    QCOMPARE(int(StrokeStyle_LineCapStyle_SquareCap), int(Qt::SquareCap));
    QCOMPARE(int(StrokeStyle_LineCapStyle_RoundCap), int(Qt::RoundCap));
    QCOMPARE(int(StrokeStyle_LineJoinStyle_MiterJoin), int(Qt::MiterJoin));
    QCOMPARE(int(StrokeStyle_LineJoinStyle_BevelJoin), int(Qt::BevelJoin));
    QCOMPARE(int(StrokeStyle_LineJoinStyle_RoundJoin), int(Qt::RoundJoin));
    QCOMPARE(int(StrokeStyle_LineJoinStyle_SvgMiterJoin), int(Qt::SvgMiterJoin));
    QCOMPARE(int(GraphicActionRemove), 3);
    QCOMPARE(int(UserAction_Type_UserActionMouseInfo), 2);
    QCOMPARE(int(UserOperation_Type_UserOperationClearByUid), 1);
    QCOMPARE(int(WhiteboardData_Type_WhiteboardDataUserOperation), 2);
}

void tst_Schema::nestedRoundTrip()
{
    // The payload of an envelope is a second, independently encoded message.
    WhiteboardData inner;
    inner.set_datatype(WhiteboardData_Type_WhiteboardDataGraphicAction);
    GraphicAction* action = inner.mutable_graphicactiondata();
    action->set_gid("-123");
    action->set_graphicactiontype(GraphicActionUpdate);
    Rect* rect = action->mutable_rectdata()->add_data();
    rect->mutable_baseinfo()->set_userid(7);
    rect->set_width(12.5f);
    rect->mutable_strokestyle()->set_width(3);
    rect->mutable_strokestyle()->set_linecap(StrokeStyle_LineCapStyle(int(Qt::SquareCap)));

    TransferData transfer;
    transfer.set_whiteboardid("board");
    SingleWhiteboardData* envelope = transfer.mutable_multi()->add_whiteboarddatalist();
    envelope->set_gid("-123");
    envelope->set_data(inner.SerializeAsString());

    TransferData received;
    QVERIFY(received.ParseFromString(transfer.SerializeAsString()));
    QCOMPARE(received.transferdata_case(), TransferData::kMulti);
    WhiteboardData parsed;
    QVERIFY(parsed.ParseFromString(received.multi().whiteboarddatalist(0).data()));
    const Rect& back = parsed.graphicactiondata().rectdata().data(0);
    QCOMPARE(parsed.graphicactiondata().actiondata_case(), GraphicAction::kRectdata);
    QVERIFY(back.has_width());
    QVERIFY(!back.has_heigth());
    QVERIFY(!back.has_opacity());
    QVERIFY(!back.has_fillstyle());
    QVERIFY(!back.has_transform());
    QCOMPARE(back.width(), 12.5f);
    QCOMPARE(back.baseinfo().userid(), 7);
    QCOMPARE(int(back.strokestyle().linecap()), int(Qt::SquareCap));
    QVERIFY(!back.strokestyle().has_color());
}

void tst_Schema::emptyEnvelopeParsesAsAnEmptyAction()
{
    WhiteboardData parsed;
    QVERIFY(parsed.ParseFromArray("", 0));
    QCOMPARE(int(parsed.datatype()), 0);
    QCOMPARE(parsed.graphicactiondata().actiondata_case(), GraphicAction::ACTIONDATA_NOT_SET);
    TransferData nothing;
    QCOMPARE(nothing.transferdata_case(), TransferData::TRANSFERDATA_NOT_SET);
}

QTEST_MAIN(tst_Schema)
#include "tst_schema.moc"
