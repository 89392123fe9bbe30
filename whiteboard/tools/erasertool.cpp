#include "tools/erasertool.h"

#include "graphics/graphicitem.h"
#include "scene/batchremovegraphiccommand.h"
#include "scene/graphicscene.h"
#include "scene/removegraphiccommand.h"
#include "tools/gesture.h"
#include "tools/toolcontroller.h"

#include <QHoverEvent>
#include <QMouseEvent>

namespace whiteboard {

void EraserTool::begin(QMouseEvent* event)
{
    if (const QSharedPointer<GraphicItem> hit = m_scene->itemAt(event->pos(), 0, Qt::IntersectsItemShape))
        m_scene->pushCommand(new RemoveGraphicCommand(hit, m_scene));
    else
        m_gesture.erasedItems.clear();
}

void EraserTool::motion(QMouseEvent* event)
{
    m_gesture.mouseMoved = true;
    const QSharedPointer<GraphicItem> hit = m_scene->itemAt(event->pos(), 0, Qt::IntersectsItemShape);
    if (hit && !m_gesture.erasedItems.contains(hit)) {
        // Halved once, as the sign that it is about to go.
        hit->setOpacity(hit->opacity() * 0.5);
        m_scene->invalidate(hit->boundary(), GraphicScene::ItemLayer);
        m_gesture.erasedItems.append(hit);
    }
}

void EraserTool::hover(QHoverEvent* event)
{
    pointAt(event->position(), Qt::PointingHandCursor);
}

void EraserTool::end(QMouseEvent* event)
{
    if (!m_gesture.mouseMoved && event->button() != Qt::RightButton) {
        m_tools.endGesture();
        return;
    }
    // mousePressed stays set until the next press: until then the space bar
    // leaves the cursor alone, as it does while a button is down.
    m_gesture.mouseMoved = false;
    if (m_gesture.erasedItems.isEmpty())
        return;
    for (const QSharedPointer<GraphicItem>& item : std::as_const(m_gesture.erasedItems))
        item->setOpacity(item->opacity() * 2.0);
    m_scene->pushCommand(new BatchRemoveGraphicCommand(m_gesture.erasedItems, m_scene, true));
    m_gesture.erasedItems.clear();
}

} // namespace whiteboard
