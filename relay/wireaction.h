#pragma once

#include "whiteboard/proto/itemlists.h"

#include <QtGlobal>

namespace relay {

// What the relay and its client read off an item action beyond its plain
// fields.
class WireAction
{
public:
    // The author the action names: the user id of its (first) item; 0 when it
    // carries none.
    static qint64 author(const im::whiteboard::GraphicAction& action)
    {
        qint64 author = 0;
        whiteboard::ItemLists::visit(action, [&author](const auto& list) {
            if (list.data_size() > 0)
                author = qint64(list.data(0).baseinfo().userid());
        });
        return author;
    }
};

} // namespace relay
