#pragma once

#include "proto/whiteboard.pb.h"

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
        using Action = im::whiteboard::GraphicAction;
        switch (action.actiondata_case()) {
        case Action::kLinedata:
            return firstAuthor(action.linedata());
        case Action::kPolylinedata:
            return firstAuthor(action.polylinedata());
        case Action::kRectdata:
            return firstAuthor(action.rectdata());
        case Action::kTextdata:
            return firstAuthor(action.textdata());
        case Action::kEllipsedata:
            return firstAuthor(action.ellipsedata());
        case Action::kPathdata:
            return firstAuthor(action.pathdata());
        case Action::kImagedata:
            return firstAuthor(action.imagedata());
        case Action::kArrowdata:
            return firstAuthor(action.arrowdata());
        default:
            return 0;
        }
    }

private:
    template<typename List>
    static qint64 firstAuthor(const List& list)
    {
        return list.data_size() > 0 ? qint64(list.data(0).baseinfo().userid()) : 0;
    }
};

} // namespace relay
