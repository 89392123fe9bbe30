#include "tools/texttool.h"

#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphiccontroller.h"
#include "graphics/graphicpalette.h"
#include "graphics/graphictextitem.h"
#include "inputlimits.h"
#include "scene/addgraphiccommand.h"
#include "scene/graphicscene.h"
#include "scene/resizegraphiccommand.h"
#include "scene/textchangecommand.h"
#include "tools/gesture.h"
#include "tools/toolcontroller.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QMutexLocker>
#include <QQuickItem>

#include <functional>

namespace whiteboard {

namespace {

// The render thread reads an item's visibility as it records a frame.
void setShown(GraphicScene* scene, GraphicItem* item, bool shown)
{
    SceneLocker locker(&scene->itemsMutex());
    item->setVisible(shown);
}

// Escape and Enter end the edit before the field sees them. Enter with any
// modifier too: a board lays a text out one line high, so a second line
// would not show on any board.
class EditKeys : public QObject
{
public:
    explicit EditKeys(std::function<void()> finish)
        : m_finish(std::move(finish))
    {
    }

    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() != QEvent::KeyPress)
            return QObject::eventFilter(watched, event);
        const auto* key = static_cast<QKeyEvent*>(event);
        if (key->key() != Qt::Key_Escape && key->key() != Qt::Key_Return && key->key() != Qt::Key_Enter)
            return false;
        m_finish();
        return true;
    }

private:
    std::function<void()> m_finish;
};

// `viewPos` in the coordinates of the field's parent, wherever the host put it.
QPointF fieldPosition(const GraphicScene* scene, const QQuickItem* inputer, const QPointF& viewPos)
{
    QQuickItem* parent = inputer->parentItem();
    QQuickItem* view = scene->view();
    return parent && view ? parent->mapFromItem(view, viewPos) : viewPos;
}

} // namespace

TextTool::TextTool(GraphicScene* scene, ToolController& tools)
    : DrawTool(scene, tools)
    , m_keys(std::make_unique<EditKeys>([this] { finishEdit(); }))
{
}

TextTool::~TextTool()
{
    QObject::disconnect(m_focusWatch);
    if (m_inputer)
        m_inputer->removeEventFilter(m_keys.get());
}

void TextTool::end(QMouseEvent* event)
{
    // Without a move the press placed nothing, so the release always goes on.
    if (!m_gesture.mouseMoved || event->button() == Qt::LeftButton)
        makeBox(event);
    finish(event);
}

void TextTool::awaitText()
{
    auto* inputer = qobject_cast<QQuickItem*>(m_scene->textInputer());
    if (!inputer) {
        m_gesture.activeItem.reset();
        m_tools.endGesture();
        return;
    }
    inputer->setEnabled(true);
    inputer->forceActiveFocus();
    open(inputer, Open::NewBox, QSharedPointer<GraphicItem>());
}

void TextTool::makeBox(QMouseEvent* event)
{
    QObject* inputer = m_scene->textInputer();
    if (!inputer)
        return;
    auto* item = static_cast<GraphicTextItem*>(m_scene->createItem(GraphicDefine::Text));
    styleNewItem(item, GraphicDefine::Text);
    m_scene->setFocusItem(QSharedPointer<GraphicItem>());
    m_scene->deselectAll();
    {
        // Held while the box is shaped too: it is in a painted layer by then.
        SceneLocker locker(&m_scene->itemsMutex());
        // A drag with the text tool left its own item in the active layer; only
        // this box goes on.
        m_gesture.activeItem = m_scene->addItem(GraphicScene::ActiveLayer, item);
        item->mouseMoveEvent(event);
        item->mouseReleaseEvent(event);
        item->setBoundary(QRectF(m_scene->mapToScene(event->pos()), QSizeF(24, 24)));
        QFont font = item->font();
        font.setPixelSize(int(item->boundary().height()));
        inputer->setProperty("font", font);
        item->setFont(font);
    }
    if (auto* quickInputer = qobject_cast<QQuickItem*>(inputer)) {
        quickInputer->setPosition(fieldPosition(m_scene, quickInputer, m_scene->mapFromScene(item->boundary().topLeft())));
        quickInputer->setSize(item->boundary().size() * m_scene->scale());
        inputer->setProperty("color", GraphicPalette::instance()->strokeColor());
        quickInputer->setVisible(true);
        // Enabled by the release once the box is taken off the active layer.
        quickInputer->setEnabled(false);
    }
}

void TextTool::open(QQuickItem* inputer, Open mode, const QSharedPointer<GraphicItem>& edited)
{
    // One edit at a time: a second one ends the first.
    finishEdit();
    m_open = mode;
    m_inputer = inputer;
    m_edited = edited;
    // Active focus, not focus: a field inside the view keeps the focus of
    // the view's scope when the keys go elsewhere.
    m_focusWatch = QObject::connect(inputer, &QQuickItem::activeFocusChanged, m_scene, [this](bool focused) {
        if (!focused)
            finishEdit();
    });
    inputer->installEventFilter(m_keys.get());
}

void TextTool::finishEdit()
{
    if (m_open == Open::None)
        return;
    const Open mode = std::exchange(m_open, Open::None);
    const QSharedPointer<GraphicItem> edited = std::exchange(m_edited, {});
    QObject::disconnect(m_focusWatch);
    QQuickItem* inputer = m_inputer;
    m_inputer.clear();
    if (!inputer) {
        if (auto* text = qobject_cast<GraphicTextItem*>(mode == Open::Edit ? edited.data() : m_gesture.activeItem.data()))
            setShown(m_scene, text, true);
        m_gesture.activeItem.reset();
        m_tools.endGesture();
        return;
    }
    inputer->removeEventFilter(m_keys.get());
    const bool heldKeys = inputer->hasActiveFocus();
    if (mode == Open::NewBox)
        commitNewBox(inputer);
    else
        commitEdit(inputer, edited);
    // A field inside the view is the focus of the view's scope: it gives
    // that up, or every press on the view would hand the keys back to it.
    inputer->setFocus(false);
    inputer->setVisible(false);
    if (heldKeys) {
        if (QQuickItem* view = m_scene->view())
            view->forceActiveFocus();
    }
}

void TextTool::commitNewBox(QQuickItem* inputer)
{
    const QSharedPointer<GraphicItem> item = m_gesture.activeItem;
    auto* text = qobject_cast<GraphicTextItem*>(item.data());
    if (text)
        setShown(m_scene, text, true);

    const QString content = InputLimits::typedText(inputer->property("text").toString());
    // The field may lay out its last keys at its next polish.
    inputer->ensurePolished();
    if (text && !content.isEmpty()) {
        const double w = inputer->property("contentWidth").toDouble();
        const double h = inputer->property("contentHeight").toDouble();
        text->setText(content);
        QPainterPath path;
        // The field's font is the box's in view pixels, unscaled: its content
        // size is the text's size in scene units.
        path.addRect(QRectF(text->boundary().topLeft(), QSizeF(w, h)));
        text->setOutlinePath(path);
        text->setBoundary(path.boundingRect());
        if (GraphicController* controller = text->controller())
            controller->update();
        m_scene->applyPalette(text, GraphicDefine::Text);
        m_scene->pushCommand(new AddGraphicCommand(item, m_scene));
        m_scene->deselectAll();
        m_scene->setFocusItem(item);
        m_scene->invalidate(grown(text->boundary(), 1.0), GraphicScene::ActiveLayer);
        m_scene->invalidate(text->boundary(), GraphicScene::ItemLayer);
    }
    // An empty box disappears without trace: it left the active layer at the release.
    m_gesture.activeItem.reset();
    m_tools.endGesture();
}

void TextTool::beginEdit(const QSharedPointer<GraphicItem>& item)
{
    auto* inputer = qobject_cast<QQuickItem*>(m_scene->textInputer());
    if (!inputer)
        return;
    finishEdit();
    // The field is laid over the hidden item and takes its text.
    setShown(m_scene, item.data(), false);
    const QRectF rect = m_scene->mapRectFromScene(item->boundary());
    inputer->setPosition(fieldPosition(m_scene, inputer, rect.topLeft()));
    inputer->setSize(rect.size());
    inputer->setProperty("text", item->property("text"));
    inputer->setVisible(true);
    inputer->setEnabled(true);
    inputer->forceActiveFocus();
    inputer->setProperty("font", item->property("font"));
    inputer->setProperty("color", item->property("color"));
    QMetaObject::invokeMethod(inputer, "selectAll");
    open(inputer, Open::Edit, item);
    m_scene->invalidate(grown(item->boundary(), 1.0), GraphicScene::ActiveLayer);
    m_scene->invalidate(item->boundary(), GraphicScene::ItemLayer);
}

void TextTool::commitEdit(QQuickItem* inputer, const QSharedPointer<GraphicItem>& item)
{
    setShown(m_scene, item.data(), true);
    const QString text = InputLimits::typedText(inputer->property("text").toString());
    auto* shape = qobject_cast<AbstractGraphicShapeItem*>(item.data());
    if (text.isEmpty() || !shape) {
        m_scene->invalidate(item->boundary(), GraphicScene::ItemLayer);
        return;
    }

    QPainterPath path;
    // The field was sized to the frame on the screen.
    path.addRect(QRectF(item->boundary().topLeft(), QSizeF(inputer->width(), inputer->height()) / m_scene->scale()));
    QUndoStack& history = m_scene->undoStack();
    history.beginMacro(QStringLiteral("change text"));
    history.push(new ResizeGraphicCommand(shape->outlinePath(), path, item, m_scene));
    m_scene->reportUndoRedoStatus();
    history.push(new TextChangeCommand(item->property("text").toString(), text, item, m_scene));
    m_scene->reportUndoRedoStatus();
    history.endMacro();
    m_scene->setFocusItem(item);
}

} // namespace whiteboard
