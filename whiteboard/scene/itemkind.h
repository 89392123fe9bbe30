#pragma once

#include "graphicdefine.h"
#include "proto/itemlists.h"

namespace whiteboard {

class GraphicItem;
class GraphicScene;

// One kind of item: the tool that draws it, its graphic type, the list that
// carries it on the wire and how a new one is made. The one place that
// relates them; a new kind of item is a new row.
struct ItemKind
{
    GraphicDefine::ToolType tool;
    int type; // GraphicItem::GraphicType
    ItemLists::Case list;
    // A new item of the kind, as a receiving board makes it; `scene` may be null.
    GraphicItem* (*make)(GraphicScene* scene);

    // Null for a tool that draws no item, a type or a list without a kind.
    static const ItemKind* ofTool(GraphicDefine::ToolType tool);
    static const ItemKind* ofType(int type);
    static const ItemKind* ofList(ItemLists::Case list);
};

} // namespace whiteboard
