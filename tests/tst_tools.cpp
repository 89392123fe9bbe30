// Every drawing tool through a real view: the item it leaves, its undo step,
// and the shared picture cache.
#include "testsupport.h"

#include "graphics/graphicimage.h"
#include "graphics/graphicpalette.h"
#include "graphics/graphicpenitem.h"

#include "proto/whiteboard.pb.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <memory>
#include <vector>

using namespace whiteboard;

class tst_Tools : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { f.reset(); }
    void dragDrawsItem_data();
    void dragDrawsItem();
    void imagePlacedTwiceIsDecodedOnce(); // by a drag and by a click
    void pictureIsRefusedOrScaledAndSentOnce_data();
    void pictureIsRefusedOrScaledAndSentOnce();
    void strokeCornerDragUndoesAsAMove();

private:
    // A drag that reaches the scene: the first move starts the item.
    void drag(QPoint from, QPoint to)
    {
        f->press(from);
        for (int i = 1; i <= 8; ++i)
            f->move(from + (to - from) * i / 8);
        f->release(to);
    }

    // The item actions the view sent, not the pointer's travels.
    QList<const im::whiteboard::TransferData*> actions() const
    {
        QList<const im::whiteboard::TransferData*> result;
        for (const std::unique_ptr<im::whiteboard::TransferData>& data : f->sent) {
            im::whiteboard::WhiteboardData body;
            body.ParseFromString(data->multi().whiteboarddatalist(0).data());
            if (body.has_graphicactiondata())
                result.append(data.get());
        }
        return result;
    }

    std::unique_ptr<ViewFixture> f;
};

void tst_Tools::init()
{
    GraphicPalette::instance()->setStrokeColor(QColor(10, 120, 200));
    GraphicPalette::instance()->setStrokeWidth(4);
    f = std::make_unique<ViewFixture>(QSize(1080, 720), 77);
    f->keepSent();
}

void tst_Tools::dragDrawsItem_data()
{
    QTest::addColumn<GraphicDefine::ToolType>("tool");
    QTest::addColumn<int>("type");
    QTest::newRow("pen") << GraphicDefine::Pen << int(GraphicItem::Pen);
    QTest::newRow("line") << GraphicDefine::Line << int(GraphicItem::Line);
    QTest::newRow("arrow") << GraphicDefine::ArrowLine << int(GraphicItem::ArrowLine);
    QTest::newRow("rectangle") << GraphicDefine::Rectangle << int(GraphicItem::Rectangle);
    QTest::newRow("ellipse") << GraphicDefine::Ellipse << int(GraphicItem::Ellipse);
}

void tst_Tools::dragDrawsItem()
{
    QFETCH(GraphicDefine::ToolType, tool);
    QFETCH(int, type);
    f->view->setToolType(tool);
    f->press(QPoint(100, 100));
    for (int i = 1; i <= 8; ++i)
        f->move(QPoint(100, 100) + QPoint(300, 200) * i / 8);

    // Until the release the item is a draft on the active layer, painted.
    QCOMPARE(f->scene->itemCount(GraphicScene::ItemLayer), 0);
    const GraphicItemList drafts = f->scene->items(GraphicScene::ActiveLayer, 1);
    QCOMPARE(drafts.size(), 1);
    const auto* draft = qobject_cast<AbstractGraphicShapeItem*>(drafts.first().data());
    QVERIFY(draft);
    const QColor drafted = f->frame().pixelColor(draft->outlinePath().pointAtPercent(0.1).toPoint());
    QVERIFY2(drafted.blue() > 150 && drafted.red() < 80, qPrintable(drafted.name()));

    f->release(QPoint(400, 300));
    const GraphicItemList items = f->scene->items(GraphicScene::ItemLayer, 1);
    QCOMPARE(items, drafts);
    const auto* item = draft;
    QCOMPARE(item->type(), type);
    QCOMPARE(item->userId(), 77);
    QCOMPARE(item->pen().color(), QColor(10, 120, 200));
    QCOMPARE(item->pen().width(), 4);
    QVERIFY(!item->isEditMode());
    QVERIFY(item->boundary().width() > 200);
    QCOMPARE(f->scene->itemCount(GraphicScene::ActiveLayer), 0);
    QCOMPARE(f->scene->focusItem(), items.first());
    QVERIFY(f->view->canUndo());

    // Painted where the pointer went, in the palette's colour.
    const QPointF on = item->outlinePath().pointAtPercent(0.1);
    const QColor painted = f->frame().pixelColor(on.toPoint());
    QVERIFY2(painted.blue() > 150 && painted.red() < 80, qPrintable(painted.name()));

    f->scene->undo();
    QCOMPARE(f->scene->itemCount(GraphicScene::ItemLayer), 0);
    const QColor undone = f->frame().pixelColor(on.toPoint());
    QVERIFY2(undone.blue() < 150 || undone.red() > 80, qPrintable(undone.name()));
    QVERIFY(!f->view->canUndo());
    QVERIFY(f->view->canRedo());
}

void tst_Tools::imagePlacedTwiceIsDecodedOnce()
{
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("picture.png"));
    QImage picture(40, 20, QImage::Format_ARGB32);
    picture.fill(QColor(250, 20, 20));
    QVERIFY(picture.save(file));

    f->scene->setImagePath(QUrl::fromLocalFile(file).toString());
    f->view->setToolType(GraphicDefine::Image);
    drag(QPoint(100, 100), QPoint(300, 200));
    // A click places the picture at its own size, its top left at the click.
    QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(500, 300));
    QCOMPARE(f->scene->undoStack().count(), 2);

    const GraphicItemList items = f->scene->items(GraphicScene::ItemLayer, 1);
    QCOMPARE(items.size(), 2);
    // Items of one millisecond stack by gid, which is random: the clicked
    // one is told by where it lies.
    const bool clickedFirst = items.at(0)->boundary().topLeft() == QPointF(500, 300);
    const auto* first = qobject_cast<GraphicImage*>(items.at(clickedFirst ? 1 : 0).data());
    const auto* second = qobject_cast<GraphicImage*>(items.at(clickedFirst ? 0 : 1).data());
    QVERIFY(first && second);
    QVERIFY(!first->imageKey().isEmpty());
    QCOMPARE(first->imageKey(), second->imageKey());
    QCOMPARE(f->scene->imageByKey(first->imageKey()), f->scene->imageByKey(second->imageKey()));

    // The picture is stretched into each frame.
    const QImage frame = f->frame();
    QCOMPARE(frame.pixelColor(200, 150), QColor(250, 20, 20));
    QCOMPARE(second->boundary(), QRectF(500, 300, 40, 20));
    QCOMPARE(frame.pixelColor(520, 310), QColor(250, 20, 20));
    QVERIFY(frame.pixelColor(545, 310) != QColor(250, 20, 20));
}

void tst_Tools::pictureIsRefusedOrScaledAndSentOnce_data()
{
    QTest::addColumn<QSize>("size"); // of the picture written; empty: a file of text
    QTest::addColumn<bool>("missing");
    QTest::addColumn<QSize>("placed"); // empty: refused
    QTest::newRow("missing file") << QSize() << true << QSize();
    QTest::newRow("not a picture") << QSize() << false << QSize();
    QTest::newRow("longer than the limit") << QSize(5000, 10) << false << QSize(4096, 8);
}

void tst_Tools::pictureIsRefusedOrScaledAndSentOnce()
{
    QFETCH(QSize, size);
    QFETCH(bool, missing);
    QFETCH(QSize, placed);
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("picture.png"));
    if (size.isValid()) {
        QImage picture(size, QImage::Format_ARGB32);
        picture.fill(QColor(250, 20, 20));
        QVERIFY(picture.save(file));
    } else if (!missing) {
        QFile text(file);
        QVERIFY(text.open(QIODevice::WriteOnly));
        text.write("not a picture");
    }
    QSignalSpy refused(f->view, &WhiteboardView::pictureRefused);

    const QString path = QUrl::fromLocalFile(file).toString();
    f->scene->setImagePath(path);
    f->view->setToolType(GraphicDefine::Image);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^(refused|clamped) picture ")));
    drag(QPoint(100, 100), QPoint(300, 200));

    if (!placed.isValid()) {
        // Refused before any item or history step exists, and told to the host.
        QCOMPARE(refused.size(), 1);
        QCOMPARE(refused.first().at(0).toString(), path);
        QVERIFY(!refused.first().at(1).toString().isEmpty());
        QCOMPARE(f->scene->itemCount(GraphicScene::ItemLayer), 0);
        QVERIFY(!f->view->canUndo());
        QVERIFY(actions().isEmpty());
        return;
    }
    QVERIFY(refused.isEmpty());
    const QSharedPointer<GraphicItem> item = f->scene->focusItem();
    const auto* image = qobject_cast<GraphicImage*>(item.data());
    QVERIFY(image);
    QCOMPARE(f->scene->imageByKey(image->imageKey())->size(), placed);

    // A move carries the frame only; the other board keeps the pixels it has.
    f->view->setToolType(GraphicDefine::Selector);
    drag(QPoint(200, 150), QPoint(260, 190));
    const QList<const im::whiteboard::TransferData*> sent = actions();
    QCOMPARE(sent.size(), 2);
    GraphicScene other;
    for (const im::whiteboard::TransferData* data : sent) {
        im::whiteboard::WhiteboardData body;
        body.ParseFromString(data->multi().whiteboarddatalist(0).data());
        const im::whiteboard::GraphicAction& action = body.graphicactiondata();
        QCOMPARE(action.imagedata().data(0).has_data(), action.graphicactiontype() == im::whiteboard::GraphicActionAdd);
        other.receiveData(new im::whiteboard::TransferData(*data));
    }
    const auto* received = qobject_cast<GraphicImage*>(other.itemByGid(image->gid()).data());
    QVERIFY(received);
    QCOMPARE(received->boundary(), image->boundary());
    // Decoded on the other board's pool, and handed over from its event loop.
    QTRY_VERIFY(!received->imageKey().isEmpty());
    QCOMPARE(other.imageByKey(received->imageKey())->size(), placed);
}

void tst_Tools::strokeCornerDragUndoesAsAMove()
{
    f->view->setToolType(GraphicDefine::Pen);
    drag(QPoint(200, 200), QPoint(300, 260));
    const QSharedPointer<GraphicItem> stroke = f->scene->focusItem();
    auto* pen = qobject_cast<GraphicPenItem*>(stroke.data());
    QVERIFY(pen);
    const QRectF before = pen->outlinePath().boundingRect();

    // Drag the bottom right handle out to twice the width.
    f->view->setToolType(GraphicDefine::Selector);
    const QPoint corner = before.bottomRight().toPoint();
    const QPoint target(int(before.left() + 2 * before.width()), corner.y());
    f->press(corner);
    f->move(corner + QPoint(20, 0));
    f->move(target);
    f->release(target);

    const QRectF scaled = pen->outlinePath().boundingRect();
    QCOMPARE(scaled.topLeft(), before.topLeft());
    QVERIFY(qAbs(scaled.width() - 2 * before.width()) < 0.01);
    QVERIFY(qAbs(scaled.height() - 2 * before.height()) < 0.01);

    // Handle drags of strokes record the raw pointer position, so the scene
    // takes the drag for a move: from the first move's position (the stroke
    // had no drag position before it) to the last. Undo shifts the scaled
    // stroke by their difference and keeps its size.
    f->scene->undo();
    const QRectF undone = pen->outlinePath().boundingRect();
    QVERIFY(qAbs(undone.width() - scaled.width()) < 0.01);
    QCOMPARE(undone.topLeft(), scaled.topLeft() + QPointF(corner + QPoint(20, 0) - target));
    f->scene->redo();
    QCOMPARE(pen->outlinePath().boundingRect().topLeft(), scaled.topLeft());
}

QTEST_MAIN(tst_Tools)
#include "tst_tools.moc"
