// The wire schema's promises the code leans on: field numbers that peers
// already speak, and enumeration values the codecs cast from the toolkit's.
// Encoding, presence and nesting are protobuf's own and are exercised by the
// board-to-board and relay tests through real messages.
#include "proto/whiteboard.pb.h"

#include <QTest>

using namespace im::whiteboard;

class tst_Schema : public QObject
{
    Q_OBJECT

private slots:
    void fixedFieldNumbers();
    void enumerationsEqualTheToolkits();
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

QTEST_MAIN(tst_Schema)
#include "tst_schema.moc"
