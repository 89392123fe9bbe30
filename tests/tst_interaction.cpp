// Pointer gestures on a real offscreen view: drawing, selecting, dragging,
// erasing and panning, with the undo steps they leave.
#include "testsupport.h"

#include "graphics/graphiccontroller.h"
#include "graphics/graphicpalette.h"
#include "graphics/graphicrectitem.h"

#include <QGuiApplication>
#include <QStyleHints>

using namespace whiteboard;

class tst_Interaction : public QObject
{
    Q_OBJECT

private:
    // Draws with a tool; the item starts at the first forwarded move.
    void drawRect(QPoint firstMove, QPoint end, GraphicDefine::ToolType tool = GraphicDefine::Rectangle)
    {
        f->view->setToolType(tool);
        f->press(firstMove - QPoint(20, 20));
        f->move(firstMove);
        f->move(end);
        f->release(end);
    }

    std::unique_ptr<ViewFixture> f;

private slots:
    void init()
    {
        GraphicPalette* palette = GraphicPalette::instance();
        palette->setStrokeColor(Qt::red);
        palette->setStrokeWidth(3);
        palette->setFillStyleByColor(Qt::blue);
        f = std::make_unique<ViewFixture>();
        f->keepSent();
    }
    void cleanup() { f.reset(); }

    void clickBelowDragDistanceDrawsNothing()
    {
        const int below = QGuiApplication::styleHints()->startDragDistance() - 1;
        f->view->setToolType(GraphicDefine::Rectangle);
        f->press(QPoint(100, 100));
        f->move(QPoint(100 + below / 2, 100 + below - below / 2));
        f->release(QPoint(100 + below / 2, 100 + below - below / 2));
        QCOMPARE(f->scene->itemCount(GraphicScene::ActiveLayer), 0);
        QCOMPARE(f->scene->itemCount(GraphicScene::ItemLayer), 0);
        QCOMPARE(f->scene->undoStack().count(), 0);
    }

    void clickSelectsByShape_data()
    {
        QTest::addColumn<GraphicDefine::ToolType>("tool");
        QTest::addColumn<bool>("filled");
        QTest::addColumn<QPoint>("click");
        QTest::addColumn<bool>("selected");
        const auto rect = GraphicDefine::Rectangle;
        // Frame (140,130)-(300,250), pen width 3: the band reaches 4.5 either side.
        QTest::newRow("outline, on the edge") << rect << false << QPoint(142, 190) << true;
        QTest::newRow("outline, in the middle") << rect << false << QPoint(220, 190) << false;
        QTest::newRow("outline, just off the band") << rect << false << QPoint(135, 190) << false;
        QTest::newRow("outline, exactly on the right edge") << rect << false << QPoint(300, 190) << true;
        QTest::newRow("outline, exactly on the bottom edge") << rect << false << QPoint(220, 250) << true;
        QTest::newRow("outline, 4 right of the right edge") << rect << false << QPoint(304, 190) << true;
        QTest::newRow("outline, 4 below the bottom edge") << rect << false << QPoint(220, 254) << true;
        QTest::newRow("filled, in the middle") << rect << true << QPoint(220, 190) << true;
        QTest::newRow("filled, outside") << rect << true << QPoint(120, 190) << false;
        // Frame (100,100)-(500,300): the ends of the short axis are on the outline too.
        QTest::newRow("ellipse, top of the short axis") << GraphicDefine::Ellipse << false << QPoint(300, 100) << true;
        QTest::newRow("ellipse, 4 below its bottom") << GraphicDefine::Ellipse << false << QPoint(300, 304) << true;
        QTest::newRow("ellipse, in the middle") << GraphicDefine::Ellipse << false << QPoint(300, 200) << false;
        // A horizontal line from (140,190) to (300,190): hit within 4.5 above and below.
        QTest::newRow("line, on it") << GraphicDefine::Line << false << QPoint(220, 190) << true;
        QTest::newRow("line, 4 above") << GraphicDefine::Line << false << QPoint(220, 186) << true;
        QTest::newRow("line, 4 below") << GraphicDefine::Line << false << QPoint(220, 194) << true;
        QTest::newRow("line, 5 below") << GraphicDefine::Line << false << QPoint(220, 195) << false;
        QTest::newRow("line, 4 past its end") << GraphicDefine::Line << false << QPoint(304, 190) << true;
    }

    void clickSelectsByShape()
    {
        QFETCH(GraphicDefine::ToolType, tool);
        QFETCH(bool, filled);
        QFETCH(QPoint, click);
        QFETCH(bool, selected);
        f->scene->setFillShape(filled);
        if (tool == GraphicDefine::Line)
            drawRect(QPoint(140, 190), QPoint(300, 190), tool);
        else if (tool == GraphicDefine::Ellipse)
            drawRect(QPoint(100, 100), QPoint(500, 300), tool);
        else
            drawRect(QPoint(140, 130), QPoint(300, 250), tool);
        const QSharedPointer<GraphicItem> rect = f->scene->focusItem();
        QVERIFY(rect);

        f->view->setToolType(GraphicDefine::Selector);
        QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, click);
        QCOMPARE(f->scene->selectedItems().size(), selected ? 1 : 0);
        QCOMPARE(rect->selected(), selected);
        // A miss also takes the focus away, since neither controller nor item took the press.
        QCOMPARE(f->scene->focusItem() == rect, selected);
    }

    void othersItemsNeedOwnership_data()
    {
        QTest::addColumn<bool>("owner");
        QTest::newRow("participant") << false;
        QTest::newRow("owner of the board") << true;
    }

    void othersItemsNeedOwnership()
    {
        QFETCH(bool, owner);
        f->view->setIsOwner(owner);
        const QSharedPointer<GraphicItem> mine = addRect(f->scene, QRectF(100, 100, 100, 100), 1);
        const QSharedPointer<GraphicItem> theirs = addRect(f->scene, QRectF(400, 100, 100, 100), 2);

        QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(100, 150));
        QCOMPARE(f->scene->selectedItems(), GraphicItemList { mine });
        QCOMPARE(f->scene->focusItem(), mine);

        QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(400, 150));
        if (owner) {
            QCOMPARE(f->scene->selectedItems(), GraphicItemList { theirs });
            QCOMPARE(f->scene->focusItem(), theirs);
        } else {
            // The old selection is dropped all the same, and the focus stays.
            QVERIFY(f->scene->selectedItems().isEmpty());
            QVERIFY(!mine->selected());
            QVERIFY(!theirs->selected());
            QCOMPARE(f->scene->focusItem(), mine);
        }
    }

    void ctrlAddsToSelection_data()
    {
        QTest::addColumn<Qt::KeyboardModifiers>("modifiers");
        QTest::addColumn<int>("selected");
        QTest::newRow("plain click replaces") << Qt::KeyboardModifiers(Qt::NoModifier) << 1;
        QTest::newRow("ctrl adds") << Qt::KeyboardModifiers(Qt::ControlModifier) << 2;
        // Only Ctrl alone adds: with Shift as well the selection is replaced.
        QTest::newRow("ctrl and shift replace") << (Qt::ControlModifier | Qt::ShiftModifier) << 1;
    }

    void ctrlAddsToSelection()
    {
        QFETCH(Qt::KeyboardModifiers, modifiers);
        QFETCH(int, selected);
        addRect(f->scene, QRectF(100, 100, 100, 100), 1);
        const QSharedPointer<GraphicItem> second = addRect(f->scene, QRectF(400, 100, 100, 100), 1);
        QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(100, 150));
        QTest::mouseClick(f->window.get(), Qt::LeftButton, modifiers, QPoint(400, 150));
        QCOMPARE(f->scene->selectedItems().size(), selected);
        QVERIFY(f->scene->selectedItems().contains(second));
    }

    void cornerDragReshapes_data()
    {
        QTest::addColumn<GraphicDefine::ToolType>("tool");
        QTest::newRow("selector") << GraphicDefine::Selector;
        QTest::newRow("drawing tool on a handle") << GraphicDefine::Rectangle;
    }

    void cornerDragReshapes()
    {
        QFETCH(GraphicDefine::ToolType, tool);
        drawRect(QPoint(140, 130), QPoint(300, 250));
        const QSharedPointer<GraphicItem> rect = f->scene->focusItem();
        QVERIFY(rect);
        const int steps = f->scene->undoStack().count();

        f->view->setToolType(tool);
        f->drag(QPoint(140, 130), QPoint(100, 90));
        QCOMPARE(rect->boundary(), QRectF(100, 90, 200, 160));
        QCOMPARE(f->scene->itemCount(GraphicScene::ActiveLayer), 0);
        QCOMPARE(f->scene->undoStack().count(), steps + 1);

        f->scene->undo();
        QCOMPARE(rect->boundary(), QRectF(140, 130, 160, 120));
        QCOMPARE(static_cast<GraphicRectItem*>(rect.data())->outlinePath().boundingRect(), QRectF(140, 130, 160, 120));
    }

    void wholeItemDragIsOneMove()
    {
        const QSharedPointer<GraphicItem> rect = addRect(f->scene, QRectF(100, 100, 200, 100), 1);
        f->drag(QPoint(200, 100), QPoint(250, 140), 5);
        QCOMPARE(rect->boundary(), QRectF(150, 140, 200, 100));
        QCOMPARE(f->scene->undoStack().count(), 1);
        QCOMPARE(f->scene->items(GraphicScene::ItemLayer, 1), GraphicItemList { rect });

        f->scene->undo();
        QCOMPARE(rect->boundary(), QRectF(100, 100, 200, 100));
        f->scene->redo();
        QCOMPARE(rect->boundary(), QRectF(150, 140, 200, 100));
    }

    // Whoever changes an item's bounds (here the history), the item is found
    // where it is drawn: by a click, by the rubber band and by the eraser.
    void itemIsHitWhereItIsDrawn_data()
    {
        QTest::addColumn<QPoint>("from");
        QTest::addColumn<QPoint>("to");
        QTest::addColumn<QString>("probe");
        for (const QString probe : { "click", "band", "eraser" }) {
            // Dragging the outline moves the rectangle; dragging a corner
            // reshapes it, here into a small square far from the right edge.
            QTest::addRow("undo of a far move, %s", qPrintable(probe)) << QPoint(140, 190) << QPoint(840, 440) << probe;
            QTest::addRow("undo of a shrinking resize, %s", qPrintable(probe)) << QPoint(300, 250) << QPoint(150, 140) << probe;
        }
    }

    void itemIsHitWhereItIsDrawn()
    {
        QFETCH(QPoint, from);
        QFETCH(QPoint, to);
        QFETCH(QString, probe);
        drawRect(QPoint(140, 130), QPoint(300, 250));
        const QSharedPointer<GraphicItem> rect = f->scene->focusItem();
        f->view->setToolType(GraphicDefine::Selector);
        f->drag(from, to);
        QVERIFY(rect->boundary() != QRectF(140, 130, 160, 120));
        f->scene->undo();
        QCOMPARE(rect->boundary(), QRectF(140, 130, 160, 120));

        // Off the page's empty corner: nothing selected, no focus.
        QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(1000, 700));
        QVERIFY(!f->scene->focusItem());
        const QPoint onRightEdge(298, 200);
        if (probe == "click") {
            QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, onRightEdge);
            QCOMPARE(f->scene->selectedItems(), GraphicItemList { rect });
        } else if (probe == "band") {
            f->drag(QPoint(250, 180), QPoint(320, 270));
            QCOMPARE(f->scene->selectedItems(), GraphicItemList { rect });
        } else {
            f->view->setToolType(GraphicDefine::Eraser);
            QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, onRightEdge);
            QCOMPARE(f->scene->itemCount(GraphicScene::ItemLayer), 0);
        }
    }

    // Leaving the focus asks for the frame that takes the handles away;
    // nothing else changes on screen to ask for one.
    void handlesGoWithTheFocus()
    {
        drawRect(QPoint(140, 130), QPoint(400, 300), GraphicDefine::ArrowLine);
        const QSharedPointer<GraphicItem> arrow = f->scene->focusItem();
        QVERIFY(arrow);
        QPointF head;
        for (const GraphicControlPoint& point : arrow->controller()->controlPoints()) {
            if (point.style == GraphicDefine::GCP_Circle)
                head = point.position;
        }
        const QPoint pixel = head.toPoint();
        QTRY_COMPARE(f->frame().pixelColor(pixel), QColor(Qt::white));

        f->view->setToolType(GraphicDefine::Selector);
        QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(800, 600));
        QVERIFY(!f->scene->focusItem());
        QTRY_VERIFY(f->scene->renderedImage().pixelColor(pixel) != QColor(Qt::white));
    }

    void rubberBandSelectsOwnItemsOnly()
    {
        const QSharedPointer<GraphicItem> a = addRect(f->scene, QRectF(100, 100, 50, 50), 1);
        const QSharedPointer<GraphicItem> b = addRect(f->scene, QRectF(200, 100, 50, 50), 1);
        const QSharedPointer<GraphicItem> theirs = addRect(f->scene, QRectF(300, 100, 50, 50), 2);
        const QSharedPointer<GraphicItem> away = addRect(f->scene, QRectF(600, 500, 50, 50), 1);

        f->drag(QPoint(50, 50), QPoint(400, 300), 10);
        const GraphicItemList selected = f->scene->selectedItems();
        QCOMPARE(selected.size(), 2);
        QVERIFY(selected.contains(a) && selected.contains(b));
        QVERIFY(a->selected() && b->selected() && !theirs->selected() && !away->selected());
        // The band leaves no trace in the layers or the history.
        QCOMPARE(f->scene->itemCount(GraphicScene::ActiveLayer), 0);
        QCOMPARE(f->scene->undoStack().count(), 0);
        QVERIFY(!f->scene->focusItem());
    }

    void eraserGestureIsOneStep()
    {
        // The eraser asks no ownership.
        const GraphicItemList struck {
            addRect(f->scene, QRectF(100, 100, 60, 60), 2, Qt::blue),
            addRect(f->scene, QRectF(200, 100, 60, 60), 1, Qt::blue),
            addRect(f->scene, QRectF(300, 100, 60, 60), 3, Qt::blue),
        };
        for (const QSharedPointer<GraphicItem>& item : struck)
            item->setOpacity(0.8);
        f->view->setToolType(GraphicDefine::Eraser);

        f->press(QPoint(50, 130));
        for (int x : { 130, 140, 230, 330 })
            f->move(QPoint(x, 130));
        for (const QSharedPointer<GraphicItem>& item : struck)
            QCOMPARE(item->opacity(), 0.4);
        QCOMPARE(f->scene->itemCount(GraphicScene::ItemLayer), 3);

        f->release(QPoint(330, 130));
        QCOMPARE(f->scene->itemCount(GraphicScene::ItemLayer), 0);
        QCOMPARE(f->scene->undoStack().count(), 1);

        f->scene->undo();
        QCOMPARE(f->scene->itemCount(GraphicScene::ItemLayer), 3);
        for (const QSharedPointer<GraphicItem>& item : struck)
            QCOMPARE(item->opacity(), 0.8);
    }

    void spaceBarPansViewport()
    {
        const QPointF before = f->scene->mapToScene(QPointF(0, 0));
        QTest::keyPress(f->window.get(), Qt::Key_Space);
        f->drag(QPoint(500, 400), QPoint(400, 350));
        QTest::keyRelease(f->window.get(), Qt::Key_Space);

        // The content follows the hand: what was under (500,400) is now under (400,350).
        const QPointF after = f->scene->mapToScene(QPointF(0, 0));
        QCOMPARE(after - before, QPointF(100, 50));
        QCOMPARE(f->scene->itemCount(GraphicScene::ActiveLayer), 0);
        QCOMPARE(f->scene->undoStack().count(), 0);
    }

    void polylineClosedByToolChange_data()
    {
        QTest::addColumn<GraphicDefine::ToolType>("tool");
        QTest::newRow("selector") << GraphicDefine::Selector;
        QTest::newRow("eraser") << GraphicDefine::Eraser;
    }

    void polylineClosedByToolChange()
    {
        QFETCH(GraphicDefine::ToolType, tool);
        f->view->setToolType(GraphicDefine::Segment);
        QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(100, 100));
        QTest::mouseMove(f->window.get(), QPoint(200, 100));
        QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(200, 100));
        QTest::mouseMove(f->window.get(), QPoint(200, 200));
        QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(200, 200));
        QCOMPARE(f->scene->itemCount(GraphicScene::ActiveLayer), 1);
        QCOMPARE(f->scene->undoStack().count(), 0);

        f->view->setToolType(tool);
        QCOMPARE(f->scene->itemCount(GraphicScene::ActiveLayer), 0);
        const GraphicItemList items = f->scene->items(GraphicScene::ItemLayer, 1);
        QCOMPARE(items.size(), 1);
        QCOMPARE(items.first()->type(), int(GraphicItem::Segment));
        QCOMPARE(items.first()->boundary(), QRectF(100, 100, 100, 100));
        QCOMPARE(f->scene->undoStack().count(), 1);
        QVERIFY(!f->scene->activeItem());
    }
};

QTEST_MAIN(tst_Interaction)
#include "tst_interaction.moc"
