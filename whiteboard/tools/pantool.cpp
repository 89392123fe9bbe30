#include "tools/pantool.h"

#include "scene/graphicscene.h"
#include "tools/gesture.h"

#include <QMouseEvent>

namespace whiteboard {

void PanTool::begin(QMouseEvent* event)
{
    m_gesture.panning = true;
    m_scene->setViewCursor(Qt::ClosedHandCursor);
    m_gesture.pressPoint = event->pos();
}

void PanTool::motion(QMouseEvent* event)
{
    // The content follows the hand.
    const QPoint delta = m_gesture.pressPoint - event->pos();
    m_scene->move(QPointF(delta));
    m_gesture.pressPoint = event->pos();
}

void PanTool::end(QMouseEvent*)
{
    m_scene->setViewCursor(m_gesture.pressedKey == Qt::Key_Space ? Qt::OpenHandCursor : Qt::ArrowCursor);
}

} // namespace whiteboard
