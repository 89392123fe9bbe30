#include "tools/drawtool.h"

#include "graphics/graphiccontroller.h"
#include "graphics/graphicitem.h"
#include "scene/graphicscene.h"
#include "tools/gesture.h"
#include "tools/selecttool.h"
#include "tools/toolcontroller.h"

#include <QMouseEvent>

namespace whiteboard {

void DrawTool::begin(QMouseEvent* event)
{
    // A drawing tool takes a press only on a handle of the focus item.
    const QSharedPointer<GraphicItem> focus = m_scene->focusItem();
    GraphicController* controller = focus ? focus->controller() : nullptr;
    const int point = controller ? controller->controlPointAt(m_scene->mapToScene(event->pos())) : -1;
    if (point < 0) {
        m_gesture.controlPointPressed = false;
        return;
    }
    m_scene->setViewCursor(controlPointCursor(controller, point));
    m_gesture.controlPointPressed = true;
    m_tools.select().begin(event);
}

} // namespace whiteboard
