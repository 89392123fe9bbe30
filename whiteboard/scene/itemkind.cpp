#include "scene/itemkind.h"

#include "graphics/graphicarrowline.h"
#include "graphics/graphicellipseitem.h"
#include "graphics/graphicimage.h"
#include "graphics/graphiclineitem.h"
#include "graphics/graphiclinesegmentitem.h"
#include "graphics/graphicpenitem.h"
#include "graphics/graphicrectitem.h"
#include "graphics/graphictextitem.h"

#include <QFont>

#include <iterator>

namespace whiteboard {

namespace {

using Action = im::whiteboard::GraphicAction;

template <class Item>
GraphicItem* make(GraphicScene* scene)
{
    return new Item(scene, nullptr);
}

const ItemKind kKinds[] = {
    { GraphicDefine::Line, GraphicItem::Line, Action::kLinedata, &make<GraphicLineItem>,
      ItemCodec::of<&Action::mutable_linedata, GraphicLineItem>() },
    { GraphicDefine::Segment, GraphicItem::Segment, Action::kPolylinedata, &make<GraphicLineSegmentItem>,
      ItemCodec::of<&Action::mutable_polylinedata, GraphicLineSegmentItem>() },
    { GraphicDefine::Rectangle, GraphicItem::Rectangle, Action::kRectdata, &make<GraphicRectItem>,
      ItemCodec::of<&Action::mutable_rectdata, GraphicRectItem>() },
    { GraphicDefine::Text, GraphicItem::Text, Action::kTextdata,
      [](GraphicScene* scene) -> GraphicItem* { return new GraphicTextItem(QString(), QFont(), scene, nullptr); },
      ItemCodec::of<&Action::mutable_textdata, GraphicTextItem>() },
    { GraphicDefine::Ellipse, GraphicItem::Ellipse, Action::kEllipsedata, &make<GraphicEllipseItem>,
      ItemCodec::of<&Action::mutable_ellipsedata, GraphicEllipseItem>() },
    { GraphicDefine::Pen, GraphicItem::Pen, Action::kPathdata, &make<GraphicPenItem>,
      ItemCodec::of<&Action::mutable_pathdata, GraphicPenItem>() },
    { GraphicDefine::Image, GraphicItem::Image, Action::kImagedata,
      [](GraphicScene* scene) -> GraphicItem* { return new GraphicImage(QString(), scene, nullptr); },
      ItemCodec::of<&Action::mutable_imagedata, GraphicImage>() },
    { GraphicDefine::ArrowLine, GraphicItem::ArrowLine, Action::kArrowdata, &make<GraphicArrowLineItem>,
      ItemCodec::of<&Action::mutable_arrowdata, GraphicArrowLineItem>() },
};

template <class Matches>
const ItemKind* find(Matches matches)
{
    for (const ItemKind& kind : kKinds) {
        if (matches(kind))
            return &kind;
    }
    return nullptr;
}

} // namespace

const ItemKind* ItemKind::ofTool(GraphicDefine::ToolType tool)
{
    return find([tool](const ItemKind& kind) { return kind.tool == tool; });
}

const ItemKind* ItemKind::ofType(int type)
{
    return find([type](const ItemKind& kind) { return kind.type == type; });
}

const ItemKind* ItemKind::ofList(ItemLists::Case list)
{
    return find([list](const ItemKind& kind) { return kind.list == list; });
}

} // namespace whiteboard
