#pragma once

#include "proto/whiteboard.pb.h"

#include <QPointF>

namespace whiteboard {

class GraphicArrowLineItem;
class GraphicEllipseItem;
class GraphicImage;
class GraphicLineItem;
class GraphicLineSegmentItem;
class GraphicPenItem;
class GraphicRectItem;
class GraphicTextItem;

// Each kind's fields on the wire: one `write` and one `read` per pair of
// item class and message, found by overload from the kind table's row. A
// change of any kind sends the whole item; reading an entry is the same on a
// fresh item and on one that is held.
//
// `write` fills a message that starts empty. `withPayload` adds what an
// update need not repeat (an image's picture); it is set for an add only.
// `read` applies what the message carries and leaves the rest as it is.
// Transforms are never sent, whatever the message has room for.
class ItemFields
{
public:
    // Rectangle and ellipse: styles, frame and opacity. Received, the outline
    // is the one a drag of the frame without modifiers draws.
    static void write(const GraphicRectItem& item, im::whiteboard::Rect* message, bool withPayload);
    static void read(GraphicRectItem& item, const im::whiteboard::Rect& message);

    static void write(const GraphicEllipseItem& item, im::whiteboard::Ellipse* message, bool withPayload);
    static void read(GraphicEllipseItem& item, const im::whiteboard::Ellipse& message);

    // Image: frame and opacity, no styles; the picture's bytes with an add.
    static void write(const GraphicImage& item, im::whiteboard::Image* message, bool withPayload);
    static void read(GraphicImage& item, const im::whiteboard::Image& message);

    // Line: the stroke, and the ends only of a whole line (two elements).
    static void write(const GraphicLineItem& item, im::whiteboard::Line* message, bool withPayload);
    static void read(GraphicLineItem& item, const im::whiteboard::Line& message);

    // Arrow: both styles and the shaft; the receiver builds its own head.
    static void write(const GraphicArrowLineItem& item, im::whiteboard::Arrow* message, bool withPayload);
    static void read(GraphicArrowLineItem& item, const im::whiteboard::Arrow& message);

    // Polyline: the stroke and every vertex; received without one, ignored.
    static void write(const GraphicLineSegmentItem& item, im::whiteboard::Polyline* message, bool withPayload);
    static void read(GraphicLineSegmentItem& item, const im::whiteboard::Polyline& message);

    // Pen stroke: both styles and the points as "M x y L x y ... z" text.
    static void write(const GraphicPenItem& item, im::whiteboard::Path* message, bool withPayload);
    static void read(GraphicPenItem& item, const im::whiteboard::Path& message);

    // Text: both styles, position, font, text and alignment; received, one
    // line high at the position.
    static void write(const GraphicTextItem& item, im::whiteboard::Text* message, bool withPayload);
    static void read(GraphicTextItem& item, const im::whiteboard::Text& message);

    // A wire point: the coordinates are cut to float.
    static im::whiteboard::Point* makePoint(const QPointF& point);
    static QPointF toPointF(const im::whiteboard::Point& point);
};

} // namespace whiteboard
