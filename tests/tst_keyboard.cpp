// Keys, clipboard, text editing through the host's input field, and cursors,
// on a real offscreen view.
#include "testsupport.h"

#include "graphics/graphicrectitem.h"
#include "graphics/graphictextitem.h"
#include "scene/batchremovegraphiccommand.h"

#include <QQmlComponent>
#include <QQmlEngine>
#include <QSet>

using namespace whiteboard;

namespace {

} // namespace

class tst_Keyboard : public QObject
{
    Q_OBJECT

private:
    void selectByBand() { f->drag(QPoint(20, 20), QPoint(700, 400), 10); }

    QQmlEngine engine;
    std::unique_ptr<ViewFixture> f;
    std::unique_ptr<QQuickItem> inputer;

private slots:
    void init()
    {
        f = std::make_unique<ViewFixture>();
        f->keepSent();
        QQmlComponent component(&engine);
        component.setData("import QtQuick; TextEdit {}", QUrl());
        inputer.reset(qobject_cast<QQuickItem*>(component.create()));
        QVERIFY2(inputer, qPrintable(component.errorString()));
        inputer->setParentItem(f->window->contentItem());
        inputer->setVisible(false);
        f->view->setTextInputer(inputer.get());
    }
    void cleanup()
    {
        inputer.reset();
        f.reset();
    }

    void nudgeMovesSelection_data()
    {
        QTest::addColumn<int>("key");
        QTest::addColumn<QPointF>("delta");
        QTest::newRow("right") << int(Qt::Key_Right) << QPointF(1, 0);
        QTest::newRow("left") << int(Qt::Key_Left) << QPointF(-1, 0);
        QTest::newRow("up") << int(Qt::Key_Up) << QPointF(0, -1);
        QTest::newRow("down") << int(Qt::Key_Down) << QPointF(0, 1);
    }

    void nudgeMovesSelection()
    {
        QFETCH(int, key);
        QFETCH(QPointF, delta);
        const QSharedPointer<GraphicItem> a = addRect(f->scene, QRectF(100, 100, 50, 50));
        const QSharedPointer<GraphicItem> b = addRect(f->scene, QRectF(300, 100, 50, 50));

        QTest::keyClick(f->window.get(), Qt::Key(key));
        QCOMPARE(f->scene->undoStack().count(), 0);

        // A step before, so that the view has reported canUndo.
        f->scene->pushCommand(new BatchRemoveGraphicCommand(GraphicItemList(), f->scene, true));
        QVERIFY(f->view->canUndo());
        selectByBand();
        QCOMPARE(f->scene->selectedItems().size(), 2);

        QTest::keyClick(f->window.get(), Qt::Key(key));
        QCOMPARE(a->boundary(), QRectF(100, 100, 50, 50).translated(delta));
        QCOMPARE(b->boundary(), QRectF(300, 100, 50, 50).translated(delta));
        QCOMPARE(f->scene->undoStack().count(), 2);
        // The last report came from inside the macro.
        QVERIFY(!f->view->canUndo());

        f->scene->undo();
        QCOMPARE(a->boundary(), QRectF(100, 100, 50, 50));
        QCOMPARE(b->boundary(), QRectF(300, 100, 50, 50));
    }

    void deleteRemovesSelection_data()
    {
        QTest::addColumn<int>("key");
        QTest::addColumn<bool>("select");
        QTest::newRow("delete, nothing selected") << int(Qt::Key_Delete) << false;
        QTest::newRow("delete, two selected") << int(Qt::Key_Delete) << true;
        QTest::newRow("backspace, two selected") << int(Qt::Key_Backspace) << true;
    }

    void deleteRemovesSelection()
    {
        QFETCH(int, key);
        QFETCH(bool, select);
        addRect(f->scene, QRectF(100, 100, 50, 50));
        addRect(f->scene, QRectF(300, 100, 50, 50));
        if (select)
            selectByBand();

        QTest::keyClick(f->window.get(), Qt::Key(key));
        QCOMPARE(f->scene->undoStack().count(), 1);
        QCOMPARE(f->scene->itemCount(GraphicScene::ItemLayer), select ? 0 : 2);
        f->scene->undo();
        QCOMPARE(f->scene->itemCount(GraphicScene::ItemLayer), 2);
    }

    void copyAndPaste()
    {
        const QSharedPointer<GraphicItem> source = addRect(f->scene, QRectF(100, 100, 50, 50));
        QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(100, 125));
        QCOMPARE(f->scene->selectedItems(), GraphicItemList { source });

        QTest::keyClick(f->window.get(), Qt::Key_C, Qt::ControlModifier);
        const GraphicItemList clipboard = f->scene->clipboardItems();
        QCOMPARE(clipboard.size(), 1);
        const QSharedPointer<GraphicItem> clone = clipboard.first();
        QVERIFY(clone != source);
        QCOMPARE(clone->boundary(), source->boundary());
        QVERIFY(clone->timestamp() > source->timestamp());
        QCOMPARE(f->scene->undoStack().count(), 0);

        f->view->setCurrentAccountId(5);
        QTest::keyClick(f->window.get(), Qt::Key_V, Qt::ControlModifier);
        QTest::keyClick(f->window.get(), Qt::Key_V, Qt::ControlModifier);
        QCOMPARE(f->scene->undoStack().count(), 2);
        // Each paste is a fresh copy in place, with a gid of its own, by the
        // one who pasted, and not selected; the clipboard stays.
        QCOMPARE(f->scene->clipboardItems(), GraphicItemList { clone });
        const GraphicItemList items = f->scene->items(GraphicScene::ItemLayer, 1);
        QCOMPARE(items.size(), 3);
        QSet<QString> gids;
        for (const QSharedPointer<GraphicItem>& item : items) {
            gids.insert(item->gid());
            QVERIFY(item != clone);
            QCOMPARE(item->boundary(), source->boundary());
            QCOMPARE(item->userId(), item == source ? qlonglong(1) : qlonglong(5));
            QCOMPARE(item->selected(), item == source);
        }
        QCOMPARE(gids.size(), 3);

        // Copying with nothing selected keeps the clipboard.
        QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(600, 600));
        QVERIFY(f->scene->selectedItems().isEmpty());
        QTest::keyClick(f->window.get(), Qt::Key_C, Qt::ControlModifier);
        QCOMPARE(f->scene->clipboardItems(), GraphicItemList { clone });

        // The newest copy takes the click; its handles work before it was
        // ever moved, for the one who pasted it.
        const QSharedPointer<GraphicItem> newest = f->scene->items(GraphicScene::ItemLayer, 0).first();
        QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(100, 125));
        QCOMPARE(f->scene->focusItem(), newest);
        QTest::mouseMove(f->window.get(), QPoint(150, 150));
        QCOMPARE(f->view->cursor().shape(), Qt::SizeFDiagCursor);
        f->drag(QPoint(150, 150), QPoint(180, 170));
        QCOMPARE(newest->boundary(), QRectF(100, 100, 80, 70));
        QCOMPARE(source->boundary(), QRectF(100, 100, 50, 50));
    }

    void doubleClickEditsText_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("result");
        QTest::addColumn<int>("steps");
        QTest::newRow("emptied keeps the old text") << QString() << QStringLiteral("hello") << 0;
        QTest::newRow("new text") << QStringLiteral("world") << QStringLiteral("world") << 1;
    }

    void doubleClickEditsText()
    {
        QFETCH(QString, typed);
        QFETCH(QString, result);
        QFETCH(int, steps);
        auto* text = new GraphicTextItem(QStringLiteral("hello"), QFont(), f->scene);
        QPainterPath path;
        path.addRect(100, 100, 200, 40);
        text->setOutlinePath(path);
        text->setBoundary(path.boundingRect());
        text->setUserId(1);
        const QSharedPointer<GraphicItem> item = f->scene->addItem(GraphicScene::ItemLayer, text);

        QTest::mouseDClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(150, 120));
        QTRY_VERIFY(inputer->hasActiveFocus());
        QVERIFY(inputer->isVisible());
        QVERIFY(!item->visible());
        QCOMPARE(inputer->property("text").toString(), QStringLiteral("hello"));
        QCOMPARE(inputer->position(), QPointF(100, 100));
        QCOMPARE(inputer->size(), QSizeF(200, 40));

        inputer->setProperty("text", typed);
        f->view->forceActiveFocus();
        QVERIFY(!inputer->isVisible());
        QVERIFY(item->visible());
        QCOMPARE(text->text(), result);
        QCOMPARE(f->scene->undoStack().count(), steps);
        QCOMPARE(f->scene->focusItem(), item);
        f->scene->undo();
        QCOMPARE(text->text(), QStringLiteral("hello"));
    }

    void newTextBoxCommitsOnFocusLoss_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::newRow("typed") << QStringLiteral("Hi");
        QTest::newRow("left empty") << QString();
    }

    void newTextBoxCommitsOnFocusLoss()
    {
        QFETCH(QString, typed);
        f->view->setToolType(GraphicDefine::Text);
        QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(300, 300));
        QTRY_VERIFY(inputer->hasActiveFocus());
        QCOMPARE(inputer->position(), QPointF(300, 300));
        QCOMPARE(inputer->property("font").value<QFont>().pixelSize(), 24);

        for (const QChar c : typed)
            QTest::keyClick(f->window.get(), c.toLatin1());
        f->view->forceActiveFocus();
        QVERIFY(!inputer->isVisible());
        QVERIFY(!f->scene->activeItem());
        QCOMPARE(f->scene->itemCount(GraphicScene::ActiveLayer), 0);
        const GraphicItemList items = f->scene->items(GraphicScene::ItemLayer, 1);
        if (typed.isEmpty()) {
            QVERIFY(items.isEmpty());
            QCOMPARE(f->scene->undoStack().count(), 0);
            return;
        }
        QCOMPARE(items.size(), 1);
        auto* text = qobject_cast<GraphicTextItem*>(items.first().data());
        QVERIFY(text);
        QCOMPARE(text->text(), typed);
        // The height is the font's, as every board reads the text's message.
        QCOMPARE(text->boundary().topLeft(), QPointF(300, 300));
        QCOMPARE(text->boundary().width(), inputer->property("contentWidth").toDouble());
        QVERIFY(qAbs(text->boundary().height() - inputer->property("contentHeight").toDouble()) < 1.0);
        QVERIFY(!text->boundary().isEmpty());
        QCOMPARE(f->scene->focusItem(), items.first());
        QCOMPARE(f->scene->undoStack().count(), 1);
    }

    void cursorShapes()
    {
        const QSharedPointer<GraphicItem> rect = addRect(f->scene, QRectF(100, 100, 200, 100));
        addRect(f->scene, QRectF(500, 100, 100, 100));
        f->scene->setFocusItem(rect);
        const auto cursorAt = [this](QPoint p) {
            QTest::mouseMove(f->window.get(), p);
            return f->view->cursor().shape();
        };

        QCOMPARE(cursorAt(QPoint(300, 200)), Qt::SizeFDiagCursor); // a handle of the focus item
        QCOMPARE(cursorAt(QPoint(500, 150)), Qt::PointingHandCursor); // the item's own cursor
        QCOMPARE(cursorAt(QPoint(400, 400)), Qt::ArrowCursor);

        f->view->setToolType(GraphicDefine::Eraser);
        QCOMPARE(cursorAt(QPoint(100, 100)), Qt::PointingHandCursor); // a handle, but the eraser has none
        QCOMPARE(cursorAt(QPoint(400, 400)), Qt::ArrowCursor);

        // The space bar's hand, which hovering leaves alone while the key is held.
        f->view->setToolType(GraphicDefine::Selector);
        QTest::keyPress(f->window.get(), Qt::Key_Space);
        QCOMPARE(f->view->cursor().shape(), Qt::OpenHandCursor);
        QCOMPARE(cursorAt(QPoint(500, 150)), Qt::OpenHandCursor);
        f->press(QPoint(400, 400));
        QCOMPARE(f->view->cursor().shape(), Qt::ClosedHandCursor);
        f->move(QPoint(380, 380));
        f->release(QPoint(380, 380));
        QCOMPARE(f->view->cursor().shape(), Qt::OpenHandCursor);
        QTest::keyRelease(f->window.get(), Qt::Key_Space);
        QCOMPARE(f->view->cursor().shape(), Qt::ArrowCursor);
        // The pan moved the board by (20, 20): this is the second item's left edge.
        QCOMPARE(cursorAt(QPoint(480, 130)), Qt::PointingHandCursor);
    }
};

QTEST_MAIN(tst_Keyboard)
#include "tst_keyboard.moc"
