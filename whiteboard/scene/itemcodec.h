#pragma once

#include "proto/whiteboard.pb.h"
#include "scene/itemfields.h"

#include <QByteArray>

#include <type_traits>
#include <utility>

namespace whiteboard {

class GraphicItem;

// The one way items go to and come from the wire: each item is written into
// and read from the list entry of its kind, dispatched by the kind table
// (ItemKind). Items keep their state; the messages are made only here. A kind
// without a row (the mark) has no wire form: it writes nothing and reads
// nothing.
class ItemCodec
{
public:
    // How one kind travels; each row of the kind table holds one, made by of().
    struct Wire
    {
        void (*write)(const GraphicItem& item, im::whiteboard::GraphicAction* action, bool withPayload);
        void (*read)(GraphicItem& item, const google::protobuf::MessageLite& entry);
        QByteArray (*encode)(const GraphicItem& item);
        bool (*decode)(GraphicItem& item, const QByteArray& bytes);
    };

    // The wire of the items of class `Item`, whose entries go into the list
    // that `List` (an accessor such as &GraphicAction::mutable_rectdata)
    // returns; their fields are ItemFields' overloads for the pair.
    template <auto List, class Item>
    static constexpr Wire of()
    {
        return { &Bound<List, Item>::write, &Bound<List, Item>::read, &Bound<List, Item>::encode,
                 &Bound<List, Item>::decode };
    }

    // Adds the item's entry to the list of its kind in `action`. The pixels
    // of an image go with an add only.
    static void write(const GraphicItem& item, im::whiteboard::GraphicAction* action);
    // Applies a received entry of the item's own kind, as parsed.
    static void read(GraphicItem& item, const google::protobuf::MessageLite& entry);
    // The item's entry on its own, without the pixels of an image: its state
    // as a receiver holds it. Empty for a kind without a wire form.
    static QByteArray encode(const GraphicItem& item);
    // Parses `bytes` as an entry of the item's kind and applies it. Bytes
    // that do not parse are logged and leave the item as it is (false).
    static bool decode(GraphicItem& item, const QByteArray& bytes);

private:
    static void reportParseFailure();

    template <auto List, class Item>
    struct Bound
    {
        using Action = im::whiteboard::GraphicAction;
        // The entry type of the list.
        using Message = std::remove_pointer_t<decltype((std::declval<Action&>().*List)()->add_data())>;

        static void write(const GraphicItem& item, im::whiteboard::GraphicAction* action, bool withPayload)
        {
            ItemFields::write(static_cast<const Item&>(item), (action->*List)()->add_data(), withPayload);
        }
        static void read(GraphicItem& item, const google::protobuf::MessageLite& entry)
        {
            ItemFields::read(static_cast<Item&>(item), static_cast<const Message&>(entry));
        }
        static QByteArray encode(const GraphicItem& item)
        {
            Message message;
            ItemFields::write(static_cast<const Item&>(item), &message, false);
            QByteArray bytes(qsizetype(message.ByteSizeLong()), Qt::Uninitialized);
            message.SerializeToArray(bytes.data(), int(bytes.size()));
            return bytes;
        }
        static bool decode(GraphicItem& item, const QByteArray& bytes)
        {
            Message message;
            if (!message.ParseFromArray(bytes.constData(), int(bytes.size()))) {
                reportParseFailure();
                return false;
            }
            read(item, message);
            return true;
        }
    };
};

} // namespace whiteboard
