// The per-layer quad tree and the scene's queries over it.
#include "testsupport.h"

#include "graphics/graphicitem.h"
#include "scene/graphicindexnode.h"

#include <QPainter>

using namespace whiteboard;

namespace {

QSharedPointer<GraphicItem> itemAt(const QRectF& boundary, qlonglong timestamp = 0)
{
    auto* item = new GraphicItem;
    item->setBoundary(boundary);
    item->setTimestamp(timestamp);
    return QSharedPointer<GraphicItem>(item);
}

// The node at which the item is stored, or null.
const GraphicIndexNode* nodeOf(const GraphicIndexNode* node, const QSharedPointer<GraphicItem>& item)
{
    if (node->holds(item))
        return node;
    for (int slot = 0; slot < 4; ++slot) {
        if (const GraphicIndexNode* child = node->child(slot)) {
            if (const GraphicIndexNode* found = nodeOf(child, item))
                return found;
        }
    }
    return nullptr;
}

} // namespace

class tst_Index : public QObject
{
    Q_OBJECT

private slots:
    void insertDepth_data();
    void insertDepth();
    void queryOutsideTheRoot();
    void updateReseatsAMovedItem();
    void removeOfAStrangerChangesNothing();
    void sceneQueriesSortByTimestamp();
    void itemAtPrefersNewestOrOldest();
};

void tst_Index::insertDepth_data()
{
    QTest::addColumn<QRectF>("boundary");
    QTest::addColumn<int>("depth");
    QTest::addColumn<int>("quadrant");
    QTest::newRow("empty at the origin sinks to the bottom") << QRectF(0, 0, 0, 0) << 8 << 2;
    QTest::newRow("across x = 2500 sinks as far as its size allows") << QRectF(2490, 100, 20, 20) << 7 << 2;
    QTest::newRow("outside the tree stays in the root") << QRectF(6000, 6000, 10, 10) << 0 << 0;
    QTest::newRow("into the children holding its centre") << QRectF(4000, 100, 400, 400) << 3 << 2;
    QTest::newRow("bottom left quadrant") << QRectF(100, 2600, 2000, 2000) << 1 << 3;
    QTest::newRow("as large as a child") << QRectF(2500, 0, 2500, 2500) << 1 << 1;
}

void tst_Index::insertDepth()
{
    QFETCH(QRectF, boundary);
    QFETCH(int, depth);
    QFETCH(int, quadrant);
    GraphicIndexNode root(QRectF(0, 0, 5000, 5000));
    const QSharedPointer<GraphicItem> item = itemAt(boundary);
    root.insert(item);
    const GraphicIndexNode* node = nodeOf(&root, item);
    QVERIFY(node);
    QCOMPARE(node->depth(), depth);
    QCOMPARE(node->quadrant(), quadrant);
    QCOMPARE(root.count(), 1);
}

void tst_Index::queryOutsideTheRoot()
{
    GraphicIndexNode root(QRectF(0, 0, 5000, 5000));
    const QSharedPointer<GraphicItem> outside = itemAt(QRectF(6000, 6000, 10, 10));
    root.insert(outside);
    // Only a query that meets the root's square looks at the root's items.
    QVERIFY(root.query(QRectF(5990, 5990, 30, 30)).isEmpty());
    QCOMPARE(root.query(QRectF(4990, 4990, 2000, 2000)), QList<QSharedPointer<GraphicItem>>({ outside }));
}

void tst_Index::updateReseatsAMovedItem()
{
    GraphicIndexNode root(QRectF(0, 0, 5000, 5000));
    const QSharedPointer<GraphicItem> item = itemAt(QRectF(100, 100, 10, 10));
    root.insert(item);
    item->setBoundary(QRectF(3000, 3000, 10, 10));
    root.update(item);
    QVERIFY(root.query(QRectF(90, 90, 30, 30)).isEmpty());
    QCOMPARE(root.query(QRectF(2990, 2990, 30, 30)).size(), 1);
    QCOMPARE(root.count(), 1);
}

void tst_Index::removeOfAStrangerChangesNothing()
{
    GraphicIndexNode root(QRectF(0, 0, 5000, 5000));
    root.insert(itemAt(QRectF(10, 10, 5, 5)));
    root.insert(itemAt(QRectF(2400, 2400, 200, 200)));
    root.remove(itemAt(QRectF(10, 10, 5, 5)));
    QCOMPARE(root.count(), 2);
    root.clear();
    QCOMPARE(root.count(), 0);
}

void tst_Index::sceneQueriesSortByTimestamp()
{
    GraphicScene scene;
    for (qlonglong t : { 30, 10, 20 })
        scene.addItem(GraphicScene::ItemLayer, itemAt(QRectF(100 + t, 100, 10, 10), t));
    scene.addItem(GraphicScene::ItemLayer, itemAt(QRectF(2000, 2000, 10, 10), 5)); // off the page
    QList<qlonglong> ascending;
    for (const auto& item : scene.items(GraphicScene::ItemLayer, 1))
        ascending << item->timestamp();
    QCOMPARE(ascending, QList<qlonglong>({ 10, 20, 30 }));
    QCOMPARE(scene.items(GraphicScene::ItemLayer, 0).first()->timestamp(), 30);
    QCOMPARE(scene.itemCount(GraphicScene::ItemLayer), 4);
    QCOMPARE(scene.itemCount(GraphicScene::ActiveLayer), 0);
}

void tst_Index::itemAtPrefersNewestOrOldest()
{
    ViewFixture f;
    const auto older = addRect(f.scene, QRectF(100, 100, 100, 100), 1, Qt::blue);
    const auto newer = addRect(f.scene, QRectF(150, 150, 100, 100), 1, Qt::blue);
    QCOMPARE(f.scene->itemAt(QPointF(175, 175), 0, Qt::IntersectsItemShape), newer);
    QCOMPARE(f.scene->itemAt(QPointF(175, 175), 1, Qt::IntersectsItemShape), older);
    QCOMPARE(f.scene->itemAt(QPointF(120, 120), 0, Qt::IntersectsItemShape), older);
    QVERIFY(!f.scene->itemAt(QPointF(500, 500), 0, Qt::IntersectsItemShape));
    // A mode from QML that is no selection mode finds nothing.
    for (int mode : { -1, 4, 1 << 30 }) {
        QVERIFY(!f.scene->itemAt(QPointF(175, 175), 0, mode));
        QVERIFY(f.scene->itemsByPoint(GraphicScene::ItemLayer, QPointF(175, 175), mode, 0).isEmpty());
        QVERIFY(f.scene->itemsByRect(GraphicScene::ItemLayer, QRectF(0, 0, 500, 500), mode, 0).isEmpty());
    }
    QCOMPARE(f.scene->itemByGid(newer->gid()), newer);
    QVERIFY(!f.scene->itemByGid(QStringLiteral("nope")));
}

QTEST_MAIN(tst_Index)
#include "tst_index.moc"
