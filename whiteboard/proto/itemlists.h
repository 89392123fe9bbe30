#pragma once

#include "proto/whiteboard.pb.h"

namespace whiteboard {

// The item lists a GraphicAction may carry, one per kind of item: the wire
// column of the item kinds, shared by the view and the relay (which links
// only the generated classes).
class ItemLists
{
public:
    using Case = im::whiteboard::GraphicAction::ActiondataCase;

    // Calls visit(list) with the action's list of items; false for an action
    // without one (a canvas, or nothing this version knows).
    template <class Visit>
    static bool visit(const im::whiteboard::GraphicAction& action, Visit&& visit)
    {
        using Action = im::whiteboard::GraphicAction;
        switch (action.actiondata_case()) {
        case Action::kLinedata:
            visit(action.linedata());
            return true;
        case Action::kPolylinedata:
            visit(action.polylinedata());
            return true;
        case Action::kRectdata:
            visit(action.rectdata());
            return true;
        case Action::kTextdata:
            visit(action.textdata());
            return true;
        case Action::kEllipsedata:
            visit(action.ellipsedata());
            return true;
        case Action::kPathdata:
            visit(action.pathdata());
            return true;
        case Action::kImagedata:
            visit(action.imagedata());
            return true;
        case Action::kArrowdata:
            visit(action.arrowdata());
            return true;
        default:
            return false;
        }
    }
};

} // namespace whiteboard
