#include "graphics/graphicrectcontroller.h"

#include "graphics/graphicrectitem.h"

namespace whiteboard {

GraphicRectController::GraphicRectController(GraphicScene* scene, GraphicItem* item)
    : GraphicFrameController(scene, item, GraphicRectItem::staticMetaObject)
{
}

} // namespace whiteboard
