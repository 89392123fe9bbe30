#pragma once

#include "whiteboard/proto/itemlists.h"

#include <QtGlobal>

#include <string>

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

    // Whether every item the action carries is `gid` by `author`: a list
    // holds one item on honest boards, and a second entry under another
    // author or gid is a forgery that boards would apply as that one's.
    static bool onlyOf(const im::whiteboard::GraphicAction& action, const std::string& gid, qint64 author)
    {
        bool only = true;
        whiteboard::ItemLists::visit(action, [&](const auto& list) {
            for (const auto& entry : list.data())
                only = only && entry.baseinfo().gid() == gid && qint64(entry.baseinfo().userid()) == author;
        });
        return only;
    }
};

} // namespace relay
