#include "tools/polylinetool.h"

#include "graphics/graphicitem.h"
#include "scene/graphicscene.h"
#include "tools/gesture.h"

#include <QHoverEvent>
#include <QMouseEvent>
#include <QMutexLocker>
#include <QPointingDevice>

namespace whiteboard {

void PolylineTool::begin(QMouseEvent* event)
{
    // The press itself makes a polyline; every other tool waits for the first move.
    GraphicItem* segment = m_scene->createItem(GraphicDefine::Segment);
    segment->setBoundary(m_scene->viewportRect());
    startItem(segment, GraphicDefine::Segment, event);
}

void PolylineTool::hover(QHoverEvent* event)
{
    if (!m_gesture.activeItem) {
        Tool::hover(event);
        return;
    }
    // The rubber line of an open polyline follows the pointer.
    {
        SceneLocker locker(&m_scene->itemsMutex());
        m_gesture.activeItem->hoverMoveEvent(event);
    }
    m_scene->sendMouseInfo(m_scene->mapToScene(event->position()));
}

bool PolylineTool::isOpen(const QSharedPointer<GraphicItem>& item)
{
    return item && item->type() == GraphicItem::Segment && item->isEditMode();
}

void PolylineTool::close(bool byToolChange)
{
    if (!isOpen(m_gesture.activeItem))
        return;
    const QPointF position(m_gesture.pressPoint);
    QMouseEvent event(QEvent::MouseButtonRelease, position, position, Qt::RightButton, Qt::RightButton, Qt::NoModifier,
                      QPointingDevice::primaryPointingDevice());
    event.setAccepted(true);
    SceneLocker locker(&m_scene->itemsMutex());
    m_gesture.activeItem->mousePressEvent(&event);
    m_gesture.activeItem->setIsEditMode(false);
    // Keeps a selector's release from taking the polyline for its band. The
    // scene stores a new tool only after this, so the release is the
    // polyline's own.
    m_gesture.finishingSegment = byToolChange;
    m_scene->mouseReleaseEvent(&event);
    m_gesture.finishingSegment = false;
}

} // namespace whiteboard
