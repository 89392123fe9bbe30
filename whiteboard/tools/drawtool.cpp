#include "tools/drawtool.h"

#include "graphics/graphiccontroller.h"
#include "graphics/graphicimage.h"
#include "graphics/graphicitem.h"
#include "scene/addgraphiccommand.h"
#include "scene/graphicscene.h"
#include "tools/gesture.h"
#include "tools/selecttool.h"
#include "tools/toolcontroller.h"

#include <QMouseEvent>
#include <QMutexLocker>

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

void DrawTool::end(QMouseEvent* event)
{
    if (!m_gesture.mouseMoved && !m_gesture.controlPointPressed && event->button() == Qt::LeftButton
        && m_scene->toolType() == GraphicDefine::Image) {
        placePicture(event);
        m_tools.endGesture();
        return;
    }
    Tool::end(event);
}

void DrawTool::placePicture(QMouseEvent* event)
{
    // Null for a picture that cannot be read: the scene told the host why.
    auto* picture = static_cast<GraphicImage*>(m_scene->createItem(GraphicDefine::Image));
    if (!picture)
        return;
    const QImage* pixels = m_scene->imageByKey(picture->imageKey());
    QSizeF size = pixels ? QSizeF(pixels->size()) : QSizeF();
    const QSizeF room = QSizeF(m_scene->sceneSize()) / 2.0;
    if (size.isEmpty())
        size = room;
    else if (size.width() > room.width() || size.height() > room.height())
        size.scale(room, Qt::KeepAspectRatio);
    const QRectF frame(m_scene->mapToScene(event->pos()), size);
    styleNewItem(picture, GraphicDefine::Image);
    QPainterPath path;
    path.addRect(frame);
    picture->setOutlinePath(path);
    picture->rebuildHitPath();
    picture->setBoundary(frame);
    const QSharedPointer<GraphicItem> item = GraphicScene::makeShared(picture);
    m_scene->setFocusItem(QSharedPointer<GraphicItem>());
    m_scene->deselectAll();
    m_scene->pushCommand(new AddGraphicCommand(item, m_scene));
    m_scene->setFocusItem(item);
}

} // namespace whiteboard
