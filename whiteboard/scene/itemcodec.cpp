#include "scene/itemcodec.h"

#include "graphics/graphicitem.h"
#include "scene/graphicscene.h"
#include "scene/itemkind.h"

namespace whiteboard {

void ItemCodec::write(const GraphicItem& item, im::whiteboard::GraphicAction* action)
{
    if (const ItemKind* kind = ItemKind::ofType(item.type()))
        kind->wire.write(item, action, action->graphicactiontype() == im::whiteboard::GraphicActionAdd);
}

void ItemCodec::read(GraphicItem& item, const google::protobuf::MessageLite& entry)
{
    if (const ItemKind* kind = ItemKind::ofType(item.type()))
        kind->wire.read(item, entry);
}

QByteArray ItemCodec::encode(const GraphicItem& item)
{
    const ItemKind* kind = ItemKind::ofType(item.type());
    return kind ? kind->wire.encode(item) : QByteArray();
}

bool ItemCodec::decode(GraphicItem& item, const QByteArray& bytes)
{
    const ItemKind* kind = ItemKind::ofType(item.type());
    return kind && kind->wire.decode(item, bytes);
}

void ItemCodec::reportParseFailure()
{
    qCWarning(lcWhiteboardScene) << "parse from data failed.";
}

} // namespace whiteboard
