#pragma once

#include <QObject>

// Holder of the enumerations shared by the view, the scene, the items and QML.
// It is never instantiated; QML reaches it only for its enumerators.
class GraphicDefine : public QObject
{
    Q_OBJECT

public:
    enum ToolType {
        Selector = 0,
        Pen = 1,
        Line = 2,
        ArrowLine = 3,
        Segment = 4,
        Rectangle = 5,
        Ellipse = 6,
        Text = 7,
        Image = 8,
        Sticker = 9,
        Eraser = 10
    };
    Q_ENUM(ToolType)

    enum LineCapStyle {
        LineCapStyleArrow = 0,
        LineCapStyleCircle = 1
    };
    Q_ENUM(LineCapStyle)

    enum GraphicControlPointType {
        GCP_SizeTopLeft = 0,
        GCP_SizeTopRight = 1,
        GCP_SizeBottomLeft = 2,
        GCP_SizeBottomRight = 3,
        GCP_SizeTopCenter = 4,
        GCP_SizeBottomCenter = 5,
        GCP_SizeLeftCenter = 6,
        GCP_SizeRightCenter = 7,
        GCP_Rotation = 8,
        GCP_Move = 9,
        GCP_Custom = 256
    };
    Q_ENUM(GraphicControlPointType)

    enum GraphicControlPointStyle {
        GCP_Rectangle = 0,
        GCP_Circle = 1,
        GCP_Diamond = 2
    };
    Q_ENUM(GraphicControlPointStyle)
};
