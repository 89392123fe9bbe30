// Keys, clipboard, text editing through the host's input field, and cursors,
// on the README's example in a real offscreen window.
#include "messages.h"
#include "testsupport.h"

#include "graphics/graphicpalette.h"
#include "graphics/graphicrectitem.h"
#include "graphics/graphictextitem.h"
#include "scene/batchremovegraphiccommand.h"

#include <QSet>
#include <QTemporaryDir>

using namespace whiteboard;

// The host's transport the README's example names `connection`: it keeps
// what the view sends.
class Transport : public QObject
{
    Q_OBJECT

public:
    Q_INVOKABLE qlonglong serverTime() const { return 1; }

    // The texts of the text items sent with `type`, in order.
    QStringList sentTexts(pb::GraphicActionType type) const
    {
        QStringList texts;
        for (const std::unique_ptr<pb::TransferData>& data : sent) {
            for (const pb::WhiteboardData& body : bodiesOf(*data)) {
                if (body.graphicactiondata().graphicactiontype() != type)
                    continue;
                for (const pb::Text& text : body.graphicactiondata().textdata().data())
                    texts << QString::fromStdString(text.text());
            }
        }
        return texts;
    }

    std::vector<std::unique_ptr<pb::TransferData>> sent;

public slots:
    void send(im::whiteboard::TransferData* data) { sent.emplace_back(data); }

signals:
    void received(im::whiteboard::TransferData* data);
};

class tst_Keyboard : public QObject
{
    Q_OBJECT

private:
    void selectByBand() { f->drag(QPoint(20, 20), QPoint(700, 400), 10); }

    std::unique_ptr<QQmlEngine> engine;
    std::unique_ptr<Transport> connection;
    std::unique_ptr<ViewFixture> f;
    QQuickItem* inputer = nullptr;

private slots:
    void init()
    {
        engine = std::make_unique<QQmlEngine>();
        connection = std::make_unique<Transport>();
        f = std::make_unique<ViewFixture>(QSize(1080, 720), 1, [this](QQuickItem* parent) {
            return makeReadmeView(*engine, connection.get(), parent);
        });
        QVERIFY(f->view);
        inputer = f->view->textInputer();
        QVERIFY(inputer);
        QCOMPARE(inputer->parentItem(), f->view);
        // The example starts with the pen; these tests start as a host's selector button would.
        f->view->setToolType(GraphicDefine::Selector);
        GraphicPalette::instance()->setStrokeColor(Qt::red);
    }
    void cleanup()
    {
        f.reset();
        connection.reset();
        engine.reset();
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
        // A second older than now, so that the copy's time of now is later
        // even when both fall in one millisecond.
        source->setTimestamp(source->timestamp() - 1000);
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
        QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(600, 500));
        QVERIFY(!inputer->isVisible());
        QVERIFY(f->view->hasActiveFocus());
        QVERIFY(item->visible());
        QCOMPARE(text->text(), result);
        QCOMPARE(f->scene->undoStack().count(), steps);
        QCOMPARE(f->scene->focusItem(), item);
        f->scene->undo();
        QCOMPARE(text->text(), QStringLiteral("hello"));
    }

    // A new text in the README's layout: typed through the window, ended in
    // each way a user ends it, then committed, sent and exported, and the
    // next gesture draws.
    void newTextEndsAndTravels_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("ending");
        QTest::addColumn<QString>("text");
        QTest::newRow("click elsewhere") << QStringLiteral("Hi") << QStringLiteral("click") << QStringLiteral("Hi");
        QTest::newRow("escape") << QStringLiteral("Hi") << QStringLiteral("escape") << QStringLiteral("Hi");
        QTest::newRow("enter") << QStringLiteral("Hi") << QStringLiteral("enter") << QStringLiteral("Hi");
        QTest::newRow("shift+enter") << QStringLiteral("Hi") << QStringLiteral("shift+enter") << QStringLiteral("Hi");
        QTest::newRow("tool change") << QStringLiteral("Hi") << QStringLiteral("tool") << QStringLiteral("Hi");
        QTest::newRow("left empty") << QString() << QStringLiteral("click") << QString();
    }

    void newTextEndsAndTravels()
    {
        QFETCH(QString, typed);
        QFETCH(QString, ending);
        QFETCH(QString, text);
        f->view->setToolType(GraphicDefine::Text);
        QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(300, 300));
        QTRY_VERIFY(inputer->hasActiveFocus());
        QVERIFY(inputer->isVisible());
        QCOMPARE(inputer->position(), QPointF(300, 300));
        QCOMPARE(inputer->property("font").value<QFont>().pixelSize(), 24);
        for (const QChar c : typed)
            QTest::keyClick(f->window.get(), c.toLatin1());
        QVERIFY(inputer->isVisible());

        if (ending == QLatin1String("click"))
            QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(700, 500));
        else if (ending == QLatin1String("escape"))
            QTest::keyClick(f->window.get(), Qt::Key_Escape);
        else if (ending == QLatin1String("enter"))
            QTest::keyClick(f->window.get(), Qt::Key_Return);
        else if (ending == QLatin1String("shift+enter"))
            QTest::keyClick(f->window.get(), Qt::Key_Enter, Qt::ShiftModifier | Qt::KeypadModifier);
        else
            f->view->setToolType(GraphicDefine::Rectangle);
        QVERIFY(!inputer->isVisible());
        QVERIFY(f->view->hasActiveFocus());
        QVERIFY(!f->scene->activeItem());
        QCOMPARE(f->scene->itemCount(GraphicScene::ActiveLayer), 0);
        const GraphicItemList items = f->scene->items(GraphicScene::ItemLayer, 1);
        QCOMPARE(items.size(), text.isEmpty() ? 0 : 1);
        QCOMPARE(connection->sentTexts(pb::GraphicActionAdd), text.isEmpty() ? QStringList() : QStringList { text });
        if (!text.isEmpty()) {
            auto* item = qobject_cast<GraphicTextItem*>(items.first().data());
            QVERIFY(item);
            QCOMPARE(item->text(), text);
            // The frame is the field's: the board that typed holds what it sent.
            QCOMPARE(item->boundary().topLeft(), QPointF(300, 300));
            QCOMPARE(item->boundary().width(), inputer->property("contentWidth").toDouble());
            QVERIFY(qAbs(item->boundary().height() - inputer->property("contentHeight").toDouble()) < 1.0);
            QCOMPARE(f->scene->undoStack().count(), 1);
            // The export holds the red text where it was typed.
            QTemporaryDir folder;
            const QString file = folder.filePath(QStringLiteral("page.png"));
            QVERIFY(f->settle());
            QTRY_VERIFY(f->view->exportScene(file));
            const QImage page(file);
            const QRect typedArea = item->boundary().toAlignedRect();
            int inked = 0;
            for (int y = typedArea.top(); y <= typedArea.bottom(); ++y) {
                for (int x = typedArea.left(); x <= typedArea.right(); ++x) {
                    const QColor c = page.pixelColor(x, y);
                    inked += c.alpha() > 128 && c.red() > 150 && c.green() < 100;
                }
            }
            QVERIFY(inked > 10);
        } else {
            QCOMPARE(f->scene->undoStack().count(), 0);
        }

        // The press that ended the edit did nothing else; the next gesture draws.
        f->view->setToolType(GraphicDefine::Rectangle);
        f->drag(QPoint(100, 500), QPoint(200, 600));
        QCOMPARE(f->scene->itemCount(GraphicScene::ItemLayer), items.size() + 1);
        QCOMPARE(f->scene->focusItem()->type(), int(GraphicItem::Rectangle));
        // It starts at the first move.
        QCOMPARE(f->scene->focusItem()->boundary().topLeft(), QPointF(125, 525));
    }

    // The owner clears, a participant draws a filled ellipse, the owner
    // selects and copies it, then undoes and redoes the clear: the
    // ellipse's veil goes with its selection, and a click beside it takes
    // the selection.
    void selectionVeilGoesWithTheSelection()
    {
        QVERIFY(f->view->isOwner());
        f->scene->setBackgroundColor(Qt::white);
        addRect(f->scene, QRectF(600, 100, 50, 50));
        f->scene->clearAll();
        pb::WhiteboardData body = itemBody(pb::GraphicActionAdd, "e");
        pb::Ellipse* ellipse = body.mutable_graphicactiondata()->mutable_ellipsedata()->add_data();
        ellipse->mutable_baseinfo()->set_gid("e");
        ellipse->mutable_baseinfo()->set_userid(2);
        ellipse->mutable_leftpos()->set_x(200);
        ellipse->mutable_leftpos()->set_y(200);
        ellipse->set_width(200);
        ellipse->set_heigth(100);
        ellipse->mutable_fillstyle()->set_color("#0000ff");
        f->view->receiveData(new pb::TransferData(transferOf({ body })));
        const QSharedPointer<GraphicItem> item = f->scene->itemByGid(QStringLiteral("e"));
        QVERIFY(item);
        const QPoint centre(300, 250);
        QCOMPARE(f->frame().pixelColor(centre), QColor(Qt::blue));

        QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, centre);
        QCOMPARE(f->scene->selectedItems(), GraphicItemList { item });
        QVERIFY(f->frame().pixelColor(centre) != QColor(Qt::blue));
        QTest::keyClick(f->window.get(), Qt::Key_C, Qt::ControlModifier);
        f->scene->undo();
        f->scene->redo();
        QTest::mouseClick(f->window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(700, 600));
        QVERIFY(f->scene->selectedItems().isEmpty());
        QVERIFY(!item->selected());
        QCOMPARE(f->frame().pixelColor(centre), QColor(Qt::blue));
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
