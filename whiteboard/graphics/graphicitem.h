#pragma once

#include "graphics/graphicobject.h"

#include <QByteArray>
#include <QPainterPath>
#include <QRectF>
#include <QSharedPointer>
#include <QVariant>

class QFocusEvent;
class QHoverEvent;
class QInputMethodEvent;
class QKeyEvent;
class QMouseEvent;
class QPainter;
class QWheelEvent;
class QDragEnterEvent;
class QDragMoveEvent;
class QDragLeaveEvent;
class QDropEvent;

namespace im::whiteboard {
class GraphicAction;
}

namespace whiteboard {

class GraphicScene;
class GraphicController;

// Base of every drawable. Geometry is kept in scene coordinates; `boundary` is
// the item's rectangle, and x/y read out its top left. Items never move
// themselves: controllers and commands do. Whoever changes the boundary, the
// item tells its scene, which files it again in the index of every layer
// that holds it (as a graphics item tells its scene index).
class GraphicItem : public GraphicObject, public QEnableSharedFromThis<GraphicItem>
{
    Q_OBJECT
    Q_PROPERTY(whiteboard::GraphicItem* parentItem READ parentItem WRITE setParentItem NOTIFY parentItemChanged)
    Q_PROPERTY(int type READ type NOTIFY typeChanged)
    Q_PROPERTY(double width READ width WRITE setWidth NOTIFY widthChanged)
    Q_PROPERTY(double height READ height WRITE setHeight NOTIFY heightChanged)
    Q_PROPERTY(QRectF boundary READ boundary WRITE setBoundary NOTIFY boundaryChanged)
    Q_PROPERTY(bool selected READ selected WRITE setSelected NOTIFY selectedChanged)
    Q_PROPERTY(bool activeFocus READ activeFocus WRITE setActiveFocus NOTIFY activeFocusChanged)
    Q_PROPERTY(Qt::CursorShape cursorShape READ cursorShape WRITE setCursorShape NOTIFY cursorShapeChanged)
    Q_PROPERTY(bool moveable READ moveable WRITE setMoveable NOTIFY moveableChanged)
    Q_PROPERTY(bool selectable READ selectable WRITE setSelectable NOTIFY selectableChanged)
    Q_PROPERTY(bool focusable READ focusable WRITE setFocusable NOTIFY focusableChanged)
    Q_PROPERTY(bool isEditMode READ isEditMode WRITE setIsEditMode NOTIFY isEditModeChanged)
    Q_PROPERTY(bool hoverEnabled READ hoverEnabled WRITE setHoverEnabled NOTIFY hoverEnabledChanged)
    Q_PROPERTY(bool hovered READ hovered WRITE setHovered NOTIFY hoveredChanged)
    Q_PROPERTY(bool cache READ cache WRITE setCache NOTIFY cacheChanged)

public:
    enum GraphicType {
        Line = 0,
        Segment = 1,
        Rectangle = 2,
        Text = 3,
        Ellipse = 4,
        Pen = 5,
        Image = 6,
        ArrowLine = 7,
        Sticker = 8,
        Mark = 9
    };
    Q_ENUM(GraphicType)

    // Unused inside (flags are the three bools): kept as QML-visible vocabulary.
    enum GraphicsItemFlag {
        ItemIsMovable = 0,
        ItemIsSelectable = 1,
        ItemIsFocusable = 2
    };
    Q_ENUM(GraphicsItemFlag)

    // Unused inside (events come through the virtuals): kept as QML-visible vocabulary.
    enum EventType {
        FocusIn = 0,
        FocusOut = 1,
        InputMethod = 2,
        InputQuery = 3,
        MousePress = 4,
        MouseMove = 5,
        MouseRelease = 6,
        Wheel = 7,
        KeyPress = 8,
        KeyRelease = 9,
        DragEnter = 10,
        DragMove = 11,
        DragLeave = 12,
        Drop = 13
    };
    Q_ENUM(EventType)

    explicit GraphicItem(GraphicScene* scene = nullptr, GraphicItem* parent = nullptr);
    GraphicItem(const GraphicItem& other);
    ~GraphicItem() override;

    GraphicScene* scene() const { return m_scene; }
    // Made on first use, on the item's own thread, with its handles placed:
    // most items of a big board are never selected. Elsewhere (the render
    // thread) only an existing one is returned.
    GraphicController* controller() const;
    // The controller if one was made; never makes one.
    GraphicController* existingController() const { return m_controller; }

    GraphicItem* parentItem() const { return m_parentItem; }
    void setParentItem(GraphicItem* parentItem);
    int type() const { return m_type; }
    double width() const { return m_width; }
    void setWidth(double width);
    double height() const { return m_height; }
    void setHeight(double height);
    QRectF boundary() const { return m_boundary; }
    void setBoundary(const QRectF& rect);
    bool selected() const { return m_selected; }
    void setSelected(bool selected);
    bool activeFocus() const { return m_activeFocus; }
    void setActiveFocus(bool activeFocus);
    Qt::CursorShape cursorShape() const { return m_cursorShape; }
    void setCursorShape(Qt::CursorShape cursorShape);
    bool moveable() const { return m_moveable; }
    void setMoveable(bool moveable);
    bool selectable() const { return m_selectable; }
    void setSelectable(bool selectable);
    bool focusable() const { return m_focusable; }
    void setFocusable(bool focusable);
    bool isEditMode() const { return m_isEditMode; }
    void setIsEditMode(bool isEditMode);
    bool hoverEnabled() const { return m_hoverEnabled; }
    void setHoverEnabled(bool hoverEnabled);
    bool hovered() const { return m_hovered; }
    void setHovered(bool hovered);
    bool cache() const { return m_cache; }
    void setCache(bool cache);

    // Mappings along the parent chain. Items are top level in every use, so
    // mapToScene is the identity; the negations of the "from" forms are
    // deliberate and must stay.
    QPointF mapToScene(const QPointF& point) const;
    QPointF mapToScene(double x, double y) const;
    QPointF mapFromScene(const QPointF& point) const;
    QPointF mapFromScene(double x, double y) const;
    QPointF mapToItem(const GraphicItem* other, const QPointF& point) const;
    QPointF mapToItem(const GraphicItem* other, double x, double y) const;
    QPointF mapFromItem(const GraphicItem* other, const QPointF& point) const;
    QPointF mapFromItem(const GraphicItem* other, double x, double y) const;

    virtual void paint(QPainter* painter, const QRectF* rect = nullptr);
    // The item's wire form, through the one wire layer (ItemCodec) for every
    // kind: its entry alone (an image's pixels left out), that entry applied
    // (bytes that do not parse change nothing), and its entry added to an
    // action's list. Empty and ignored for a kind without a wire form.
    virtual QByteArray serialize();
    virtual void deserialize(const QByteArray& data);
    virtual void serializeToAction(im::whiteboard::GraphicAction* action);
    virtual GraphicItem* copy();
    virtual bool collidesWithPath(const QPainterPath& path, Qt::ItemSelectionMode mode) const;
    virtual bool collidesWithRect(const QRectF& rect, Qt::ItemSelectionMode mode) const;
    virtual bool collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const;
    virtual const QPainterPath& shape() const;
    virtual void focusInEvent(QFocusEvent* event);
    virtual void focusOutEvent(QFocusEvent* event);
    virtual void inputMethodEvent(QInputMethodEvent* event);
    virtual QVariant inputMethodQuery(Qt::InputMethodQuery query) const;
    virtual void mousePressEvent(QMouseEvent* event);
    virtual void mouseMoveEvent(QMouseEvent* event);
    virtual void mouseReleaseEvent(QMouseEvent* event);
    virtual void hoverEnterEvent(QHoverEvent* event);
    virtual void hoverMoveEvent(QHoverEvent* event);
    virtual void hoverLeaveEvent(QHoverEvent* event);
    virtual void wheelEvent(QWheelEvent* event);
    virtual void keyPressEvent(QKeyEvent* event);
    virtual void keyReleaseEvent(QKeyEvent* event);
    virtual void dragEnterEvent(QDragEnterEvent* event);
    virtual void dragMoveEvent(QDragMoveEvent* event);
    virtual void dragLeaveEvent(QDragLeaveEvent* event);
    virtual void dropEvent(QDropEvent* event);

signals:
    void typeChanged();
    void widthChanged();
    void heightChanged();
    void boundaryChanged();
    void selectedChanged();
    void cursorShapeChanged();
    void moveableChanged();
    void selectableChanged();
    void focusableChanged();
    void activeFocusChanged();
    void parentItemChanged();
    void isEditModeChanged();
    void hoverEnabledChanged();
    void hoveredChanged();
    void cacheChanged();

protected:
    void setType(int type);
    // Tells the scene that the area where the item can be hit changed.
    void notifyGeometryChange();
    // The controller of this kind of item, a child of it; null for kinds
    // without handles.
    virtual GraphicController* makeController() { return nullptr; }
    // Scene position of a pointer event: view pixels mapped by the scene, then
    // through this item's own chain.
    QPointF eventScenePos(const QMouseEvent* event) const;

public:
    // Whether the index of the scene layer `layer` holds the item: the
    // scene's own record, written and read under itemsMutex.
    bool filedIn(int layer) const { return m_indexLayers & (1u << layer); }
    void setFiledIn(int layer, bool filed)
    {
        m_indexLayers = filed ? quint8(m_indexLayers | (1u << layer)) : quint8(m_indexLayers & ~(1u << layer));
    }

private:
    QPointF chainOffset() const;

    mutable GraphicController* m_controller = nullptr;
    GraphicScene* m_scene = nullptr;
    GraphicItem* m_parentItem = nullptr;
    Qt::CursorShape m_cursorShape = Qt::ArrowCursor;
    int m_type = 0;
    double m_width = 0.0;
    double m_height = 0.0;
    QRectF m_boundary;
    bool m_selected = false;
    bool m_moveable = true;
    bool m_selectable = true;
    bool m_focusable = true;
    bool m_activeFocus = false;
    bool m_isEditMode = false;
    bool m_hoverEnabled = false;
    bool m_hovered = false;
    bool m_cache = false;
    // One bit per SceneLayer; written by the scene under itemsMutex, never copied.
    quint8 m_indexLayers = 0;
};

} // namespace whiteboard
