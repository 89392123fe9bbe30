// The per-layer quad tree and the scene's queries over it.
#include "testsupport.h"

#include "graphics/graphicitem.h"
#include "scene/graphicindexnode.h"
#include "scene/layerindex.h"

#include <QPainter>
#include <QRandomGenerator>

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

// Closed intervals, as the index compares: touching counts.
bool meets(const QRectF& a, const QRectF& b)
{
    const QRectF r = a.normalized();
    const QRectF s = b.normalized();
    return r.left() <= s.right() && s.left() <= r.right() && r.top() <= s.bottom() && s.top() <= r.bottom();
}

void sortByTime(GraphicItemList& items, int order)
{
    std::stable_sort(items.begin(), items.end(), [order](const auto& a, const auto& b) {
        const auto key = [](const QSharedPointer<GraphicItem>& item) { return std::make_pair(item->timestamp(), item->gid()); };
        return order == 1 ? key(a) < key(b) : key(b) < key(a);
    });
}

QSet<const GraphicItem*> pointers(const GraphicItemList& items)
{
    QSet<const GraphicItem*> set;
    for (const auto& item : items)
        set.insert(item.data());
    return set;
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
    void queriesMatchAScan_data();
    void queriesMatchAScan();
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

void tst_Index::queriesMatchAScan_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<double>("side");
    QTest::addColumn<bool>("onLines");
    QTest::newRow("small items anywhere") << 400 << 12.0 << false;
    QTest::newRow("items centred on dividing lines") << 300 << 60.0 << true;
    QTest::newRow("large items, some beyond the tree") << 150 << 3000.0 << false;
}

// Queries, rubber bands and hit tests agree with a scan of every item, in
// what they find and in its order, while items are added, moved (the items
// tell the scene) and removed.
void tst_Index::queriesMatchAScan()
{
    QFETCH(int, count);
    QFETCH(double, side);
    QFETCH(bool, onLines);
    QRandomGenerator random(11);
    const auto someRect = [&] {
        QPointF centre(random.bounded(5400.0) - 200, random.bounded(5400.0) - 200);
        if (onLines) {
            // On a dividing line of some depth, in one axis or both.
            const double step = 5000.0 / (1 << random.bounded(1, 9));
            centre.setX(std::round(centre.x() / step) * step);
            if (random.bounded(2))
                centre.setY(std::round(centre.y() / step) * step);
        }
        const QSizeF size(random.bounded(side), random.bounded(side));
        return QRectF(centre - QPointF(size.width() / 2, size.height() / 2), size);
    };

    GraphicScene scene;
    GraphicItemList live;
    const auto add = [&] {
        // Few distinct times: equal ones are ordered by gid.
        live.append(addRect(&scene, someRect(), 1, random.bounded(2) ? QColor(Qt::blue) : QColor(), GraphicScene::ItemLayer,
                            random.bounded(1, 40)));
    };
    const auto check = [&](const char* phase) {
        QCOMPARE(scene.itemCount(GraphicScene::ItemLayer), live.size());
        for (int i = 0; i < 60; ++i) {
            // Every query meets the tree's square: beyond it the root's items are not looked at.
            const QRectF rect(random.bounded(5000.0), random.bounded(5000.0), i % 10 == 0 ? 0.0 : random.bounded(1500.0),
                              i % 10 == 0 ? 0.0 : random.bounded(1500.0));
            GraphicItemList met;
            for (const auto& item : std::as_const(live)) {
                if (meets(item->boundary(), rect))
                    met.append(item);
            }
            QVERIFY2(pointers(scene.layerIndex(GraphicScene::ItemLayer)->query(rect)) == pointers(met), phase);
            for (int order : { 0, 1 }) {
                GraphicItemList hit = met;
                hit.removeIf([&](const auto& item) { return !item->collidesWithRect(rect, Qt::IntersectsItemShape); });
                sortByTime(hit, order);
                QVERIFY2(scene.itemsByRect(GraphicScene::ItemLayer, rect, Qt::IntersectsItemShape, order) == hit, phase);
            }
        }
        for (int i = 0; i < 60; ++i) {
            // Corners and edges of items as well as open places, within the
            // tree's square, as the view's points are.
            const QRectF near = live.isEmpty() ? QRectF() : live.at(random.bounded(int(live.size())))->boundary();
            const QPointF at = i % 3 == 0 ? near.topLeft() : i % 3 == 1 ? QPointF(near.center().x(), near.bottom() + 3)
                                                                        : QPointF(random.bounded(5000.0), random.bounded(5000.0));
            const QPointF p(qBound(0.0, at.x(), 5000.0), qBound(0.0, at.y(), 5000.0));
            for (int order : { 0, 1 }) {
                GraphicItemList all = live;
                sortByTime(all, order);
                const auto first = std::find_if(all.cbegin(), all.cend(), [&](const auto& item) {
                    return item->collidesWithPoint(p, Qt::IntersectsItemShape);
                });
                const QSharedPointer<GraphicItem> expected = first == all.cend() ? QSharedPointer<GraphicItem>() : *first;
                QVERIFY2(scene.itemAt(QPointF(), order, Qt::IntersectsItemShape, QTransform::fromTranslate(p.x(), p.y())) == expected, phase);
            }
        }
    };

    for (int i = 0; i < count; ++i)
        add();
    check("added");
    for (int i = 0; i < count / 2; ++i) {
        auto* item = static_cast<GraphicRectItem*>(live.at(random.bounded(int(live.size()))).data());
        const QRectF to = someRect();
        QPainterPath outline;
        outline.addRect(to);
        item->setOutlinePath(outline);
        item->rebuildHitPath();
        item->setBoundary(to);
    }
    check("moved");
    for (int i = 0; i < count / 3; ++i)
        scene.removeItem(GraphicScene::ItemLayer, live.takeAt(random.bounded(int(live.size()))));
    for (int i = 0; i < count / 4; ++i)
        add();
    check("removed and added");
}

QTEST_MAIN(tst_Index)
#include "tst_index.moc"
