#pragma once

#include <string>

namespace im::whiteboard {
class Arrow;
class Ellipse;
class Image;
class Line;
class Path;
class Polyline;
class Rect;
class Text;
class UserAction;
}

namespace whiteboard {

// The checks of what another participant sends, made on the received
// message before any item sees it: each admit() clamps the entry into the
// bounds of InputLimits in place and returns whether it may be applied at
// all. Each refused or clamped entry is told once on "whiteboard.input".
class InboundGuard
{
public:
    static bool admitEnvelope(const std::string& data);
    static bool admit(im::whiteboard::Rect& message);
    static bool admit(im::whiteboard::Ellipse& message);
    static bool admit(im::whiteboard::Image& message);
    static bool admit(im::whiteboard::Line& message);
    static bool admit(im::whiteboard::Arrow& message);
    static bool admit(im::whiteboard::Polyline& message);
    static bool admit(im::whiteboard::Path& message);
    static bool admit(im::whiteboard::Text& message);
    // A pointer position: the mark must stay where pixels can be computed.
    static bool admit(im::whiteboard::UserAction& action);
};

} // namespace whiteboard
