#include "tools/toolcontroller.h"

#include "graphics/graphicitem.h"
#include "scene/batchremovegraphiccommand.h"
#include "scene/graphicscene.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QMutexLocker>

#include <utility>

namespace whiteboard {

ToolController::ToolController(GraphicScene* scene)
    : m_scene(scene)
    , m_pan(scene, *this)
    , m_select(scene, *this)
    , m_draw(scene, *this)
    , m_polyline(scene, *this)
    , m_text(scene, *this)
    , m_eraser(scene, *this)
{
}

Tool* ToolController::current()
{
    switch (m_scene->toolType()) {
    case GraphicDefine::Selector:
        return &m_select;
    case GraphicDefine::Segment:
        return &m_polyline;
    case GraphicDefine::Text:
        return &m_text;
    case GraphicDefine::Eraser:
        return &m_eraser;
    default:
        return &m_draw;
    }
}

void ToolController::press(QMouseEvent* event)
{
    m_gesture.mousePressed = true;
    m_gesture.mouseMoved = false;
    // A press on the board outside an open text ends its edit and does
    // nothing else, up to its release.
    if (m_text.isOpen()) {
        m_gesture.endingText = true;
        m_text.finishEdit();
        return;
    }
    // The space bar pans, except while a text box takes the typing.
    const QSharedPointer<GraphicItem>& active = m_gesture.activeItem;
    if (m_gesture.pressedKey == Qt::Key_Space && (!active || active->type() != GraphicItem::Text)) {
        m_pan.begin(event);
        return;
    }
    // From here on items may change shape, and the render thread paints them
    // under itemsMutex.
    SceneLocker locker(&m_scene->itemsMutex());
    if (active) {
        // An open polyline takes its next point; a band or a box ends with its release.
        active->mousePressEvent(event);
        return;
    }
    current()->begin(event);
}

void ToolController::move(QMouseEvent* event)
{
    if (m_gesture.endingText)
        return;
    SceneLocker locker(&m_scene->itemsMutex());
    if (m_gesture.panning && !m_scene->disableDrag())
        m_pan.motion(event);
    else if (m_gesture.controlPointPressed)
        m_select.motion(event);
    else
        current()->motion(event);
}

void ToolController::release(QMouseEvent* event)
{
    if (std::exchange(m_gesture.endingText, false)) {
        endGesture();
        return;
    }
    if (m_gesture.panning && !m_scene->disableDrag()) {
        m_pan.end(event);
        endGesture();
        return;
    }
    current()->end(event);
}

void ToolController::endGesture()
{
    m_gesture.mouseMoved = false;
    m_gesture.panning = false;
    m_gesture.mousePressed = false;
}

void ToolController::doubleClick()
{
    const QSharedPointer<GraphicItem> item = m_scene->focusItem();
    if (!item || item->type() != GraphicItem::Text || m_scene->toolType() != GraphicDefine::Selector)
        return;
    m_text.beginEdit(item);
}

void ToolController::hover(QHoverEvent* event)
{
    current()->hover(event);
}

void ToolController::changingTool(GraphicDefine::ToolType next)
{
    m_text.finishEdit();
    if (next != GraphicDefine::Segment && PolylineTool::isOpen(m_gesture.activeItem))
        m_polyline.close(true);
}

void ToolController::keyPress(QKeyEvent* event)
{
    m_gesture.pressedKey = event->key();
    // Taken only by the nudge, so that other keys travel on to the host.
    event->ignore();
    SceneLocker locker(&m_scene->itemsMutex());
    if (event->key() == Qt::Key_Space && !event->isAutoRepeat()) {
        if (!m_gesture.mousePressed)
            m_scene->setViewCursor(Qt::OpenHandCursor);
        return;
    }
    if (m_select.nudge(event->key()))
        event->accept();
}

void ToolController::keyRelease(QKeyEvent* event)
{
    SceneLocker locker(&m_scene->itemsMutex());
    const int key = m_gesture.pressedKey;
    if (key == Qt::Key_Space) {
        if (!m_gesture.mousePressed)
            m_scene->setViewCursor(Qt::ArrowCursor);
    } else if (key == Qt::Key_Backspace || key == Qt::Key_Delete) {
        // Pushed even for an empty selection: an empty step enters the history
        // and an empty removal goes out, which the receivers apply as nothing.
        // The view's undo button turns on for it.
        m_scene->pushCommand(new BatchRemoveGraphicCommand(m_scene->selectedItems(), m_scene, true));
    } else if (event->modifiers() & Qt::ControlModifier) {
        if (event->key() == Qt::Key_C)
            m_select.copySelection();
        else if (event->key() == Qt::Key_E)
            m_polyline.close(false);
        else if (event->key() == Qt::Key_V)
            m_select.paste();
    }
    m_gesture.pressedKey = Qt::Key_unknown;
}

} // namespace whiteboard
