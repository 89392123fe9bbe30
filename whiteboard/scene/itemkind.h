#pragma once

#include "graphicdefine.h"
#include "proto/itemlists.h"
#include "scene/itemcodec.h"

namespace whiteboard {

class GraphicItem;
class GraphicScene;

// One kind of item: the tool that draws it, its graphic type, the list that
// carries it on the wire, how a new one is made and how it travels. The one
// place that relates them; a new kind of item is a new row (and the item's
// fields in ItemFields).
struct ItemKind
{
    GraphicDefine::ToolType tool;
    int type; // GraphicItem::GraphicType
    ItemLists::Case list;
    // A new item of the kind, as a receiving board makes it; `scene` may be null.
    GraphicItem* (*make)(GraphicScene* scene);
    // Its entry in the list, written and read.
    ItemCodec::Wire wire;

    // Null for a tool that draws no item, a type or a list without a kind.
    static const ItemKind* ofTool(GraphicDefine::ToolType tool);
    static const ItemKind* ofType(int type);
    static const ItemKind* ofList(ItemLists::Case list);
};

} // namespace whiteboard
