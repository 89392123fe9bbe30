// Pointer, keyboard, hover and text input of the scene.
#include "scene/graphicscene.h"

#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphicarrowline.h"
#include "graphics/graphiccontroller.h"
#include "graphics/graphicellipseitem.h"
#include "graphics/graphicimage.h"
#include "graphics/graphicimagecodec.h"
#include "graphics/graphicitem.h"
#include "graphics/graphiclineitem.h"
#include "graphics/graphiclinesegmentitem.h"
#include "graphics/graphicpalette.h"
#include "graphics/graphicpenitem.h"
#include "graphics/graphicrectitem.h"
#include "graphics/graphictextitem.h"
#include "scene/addgraphiccommand.h"
#include "scene/batchremovegraphiccommand.h"
#include "scene/movegraphiccommand.h"
#include "scene/removegraphiccommand.h"
#include "scene/resizegraphiccommand.h"
#include "inputlimits.h"
#include "scene/textchangecommand.h"
#include "util.h"

#include "proto/whiteboard.pb.h"

#include <QFont>
#include <QHoverEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QMutexLocker>
#include <QPointingDevice>
#include <QQuickItem>

#include <algorithm>
#include <functional>
#include <mutex>

namespace whiteboard {

namespace {

// The records are read from a snapshot: the render thread may be painting them.
Qt::CursorShape controlPointCursor(GraphicController* controller, int type)
{
    const QList<GraphicControlPoint> points = controller->controlPoints();
    for (const GraphicControlPoint& point : points) {
        if (point.type == type)
            return Qt::CursorShape(point.cursorShape);
    }
    return Qt::ArrowCursor;
}

QRegion regionOf(const QRectF& rect, double margin = 0.0)
{
    return QRegion(rect.adjusted(-margin, -margin, margin, margin).toRect());
}

bool isOpenPolyline(const QSharedPointer<GraphicItem>& item)
{
    return item && item->type() == GraphicItem::Segment && item->isEditMode();
}

} // namespace

// --- tool state and factories -----------------------------------------------

bool GraphicScene::canOperate(const QSharedPointer<GraphicItem>& item) const
{
    if (m_view && m_view->property("isOwner").toBool())
        return true;
    return item && m_currentUserId == item->userId();
}

void GraphicScene::applyPalette(GraphicItem* item, GraphicDefine::ToolType tool) const
{
    auto* shape = qobject_cast<AbstractGraphicShapeItem*>(item);
    if (!shape)
        return;
    const GraphicPalette* palette = GraphicPalette::instance();
    // The palette's stroke and cap styles are not applied: every new stroke is solid.
    shape->setPen(QPen(QBrush(palette->strokeColor(), Qt::SolidPattern), palette->strokeWidth(), Qt::SolidLine, Qt::SquareCap,
                       Qt::BevelJoin));
    shape->setBrush(QBrush(Qt::NoBrush));
    if ((tool == GraphicDefine::Rectangle || tool == GraphicDefine::Ellipse) && m_fillShape) {
        shape->setPen(QPen(Qt::NoPen));
        shape->setBrush(palette->fillStyle());
    }
}

GraphicItem* GraphicScene::createItem(GraphicDefine::ToolType tool)
{
    GraphicItem* item = nullptr;
    switch (tool) {
    case GraphicDefine::Pen:
        item = new GraphicPenItem(this, nullptr);
        break;
    case GraphicDefine::Line:
        item = new GraphicLineItem(this, nullptr);
        break;
    case GraphicDefine::ArrowLine: {
        auto* arrow = new GraphicArrowLineItem(this, nullptr);
        arrow->setCapStyle(GraphicDefine::LineCapStyleArrow);
        item = arrow;
        break;
    }
    case GraphicDefine::Segment:
        item = new GraphicLineSegmentItem(this, nullptr);
        break;
    case GraphicDefine::Rectangle:
        item = new GraphicRectItem(this, nullptr);
        break;
    case GraphicDefine::Ellipse:
        item = new GraphicEllipseItem(this, nullptr);
        break;
    case GraphicDefine::Text: {
        QFont font;
        if (QObject* inputer = textInputer()) {
            font = inputer->property("font").value<QFont>();
            inputer->setProperty("text", QString());
        }
        item = new GraphicTextItem(QString(), font, this, nullptr);
        break;
    }
    case GraphicDefine::Image:
        return createImageItem();
    default:
        return nullptr;
    }
    item->setTimestamp(qlonglong(serverTimestamp()));
    return item;
}

GraphicItem* GraphicScene::createImageItem()
{
    QString reason;
    const QImage image = GraphicImageCodec::readFile(Util::instance().toLocalFile(m_imagePath), &reason);
    if (image.isNull()) {
        // Refused before any item or history step exists.
        emit pictureRefused(m_imagePath, reason);
        return nullptr;
    }
    // A loaded picture gets no timestamp here; it keeps the item's default.
    return new GraphicImage(addImage(image), this, nullptr);
}

void GraphicScene::setToolType(GraphicDefine::ToolType tool)
{
    if (m_toolType == tool)
        return;
    // Finished before the new tool takes over, as a right click finishes it:
    // the release steps of the eraser and the text tool would skip the commit.
    if (tool != GraphicDefine::Segment && isOpenPolyline(m_activeItem))
        finishSegment(true);
    m_toolType = tool;
    emit toolTypeChanged();
}

void GraphicScene::finishSegment(bool closingByToolChange)
{
    if (!isOpenPolyline(m_activeItem))
        return;
    // A right button ends a polyline; it closes at the last pan position.
    const QPointF position(m_pressPoint);
    QMouseEvent event(QEvent::MouseButtonRelease, position, position, Qt::RightButton, Qt::RightButton, Qt::NoModifier,
                      QPointingDevice::primaryPointingDevice());
    event.setAccepted(true);
    QMutexLocker locker(&m_itemsMutex);
    m_activeItem->mousePressEvent(&event);
    m_activeItem->setIsEditMode(false);
    m_finishingSegment = closingByToolChange;
    mouseReleaseEvent(&event);
    m_finishingSegment = false;
}

// --- selection --------------------------------------------------------------

void GraphicScene::deselectAll()
{
    QMutexLocker locker(&m_itemsMutex);
    QRectF dirty = handlesArea();
    for (const QSharedPointer<GraphicItem>& item : std::as_const(m_selectedItems)) {
        item->setSelected(false);
        dirty = dirty.united(item->shape().boundingRect());
    }
    m_selectedItems.clear();
    repaintHandles(dirty);
}

void GraphicScene::clearAll(bool sync)
{
    // The clear travels as one message of its own; undo and redo of it send
    // the items they bring back or take again.
    pushCommand(new BatchRemoveGraphicCommand(items(ItemLayer, 1), this, sync, sync));
    // The others drop whatever is older than the clear, also off the page: so
    // does this board.
    if (sync)
        raiseClearMark(sendOperation(im::whiteboard::UserOperation::UserOperationClearAll), nullptr);
}

void GraphicScene::clearByUid(qlonglong userId, bool sync)
{
    GraphicItemList list = items(ItemLayer, 1);
    list.removeIf([userId](const QSharedPointer<GraphicItem>& item) { return item->userId() != userId; });
    pushCommand(new BatchRemoveGraphicCommand(list, this, sync, sync));
    // The message names the sender, not `userId`: the others clear the
    // sender's items. The protocol has always worked so.
    if (!sync)
        return;
    const Version version = sendOperation(im::whiteboard::UserOperation::UserOperationClearByUid);
    if (userId == m_currentUserId)
        raiseClearMark(version, &userId);
}

void GraphicScene::rubberBandMove(QMouseEvent* event)
{
    if (!m_activeItem) {
        // The band is a plain rectangle of no one: it never reaches the wire or the history.
        auto* band = new GraphicRectItem(this, nullptr);
        QPen pen(QColor("#CCCCCC"));
        pen.setStyle(Qt::DashLine);
        band->setPen(pen);
        band->setBrush(QBrush(Qt::NoBrush));
        m_activeItem = addItem(ActiveLayer, band);
        m_activeItem->setIsEditMode(true);
        m_activeItem->mousePressEvent(event);
        return;
    }

    m_activeItem->mouseMoveEvent(event);
    GraphicItemList found = itemsInView(ItemLayer, mapRectFromScene(m_activeItem->boundary()), 1);
    const GraphicItemList refused = [&] {
        GraphicItemList list;
        for (const QSharedPointer<GraphicItem>& item : std::as_const(found)) {
            if (!canOperate(item))
                list.append(item);
        }
        return list;
    }();
    for (const QSharedPointer<GraphicItem>& item : refused) {
        const QString gid = item->gid();
        found.removeIf([&gid](const QSharedPointer<GraphicItem>& candidate) { return candidate->gid() == gid; });
    }

    // A merge walk by address over lists that are not sorted by address: it may
    // list an item on both sides, which the idempotent flags below absorb.
    GraphicItemList toDeselect;
    GraphicItemList toSelect;
    const std::less<GraphicItem*> before;
    qsizetype i = 0;
    qsizetype j = 0;
    while (i < m_selectedItems.size() && j < found.size()) {
        GraphicItem* a = m_selectedItems.at(i).data();
        GraphicItem* b = found.at(j).data();
        if (before(a, b)) {
            toDeselect.append(m_selectedItems.at(i++));
        } else if (before(b, a)) {
            toSelect.append(found.at(j++));
        } else {
            ++i;
            ++j;
        }
    }
    for (; i < m_selectedItems.size(); ++i)
        toDeselect.append(m_selectedItems.at(i));
    for (; j < found.size(); ++j)
        toSelect.append(found.at(j));

    const QRectF handles = handlesArea();
    QPainterPath dirty;
    for (const QSharedPointer<GraphicItem>& item : std::as_const(toDeselect)) {
        item->setSelected(false);
        dirty.addPath(item->shape());
    }
    for (const QSharedPointer<GraphicItem>& item : std::as_const(toSelect)) {
        if (!item->selectable())
            continue;
        item->setSelected(true);
        dirty.addPath(item->shape());
        item->setActiveFocus(true);
    }
    m_selectedItems = found;

    const QRectF bounds = dirty.boundingRect();
    if (bounds.width() > 0 && bounds.height() > 0)
        updateLayer(ItemLayer, regionOf(bounds));
    repaintHandles(handles);
}

// --- pointer ----------------------------------------------------------------

void GraphicScene::mousePressEvent(QMouseEvent* event)
{
    m_mousePressed = true;
    m_mouseMoved = false;

    if (m_pressedKey == Qt::Key_Space && (!m_activeItem || m_activeItem->type() != GraphicItem::Text)) {
        m_panning = true;
        setViewCursor(Qt::ClosedHandCursor);
        m_pressPoint = event->pos();
        return;
    }

    // From here on items may change shape, and the render thread paints them
    // under itemsMutex.
    QMutexLocker locker(&m_itemsMutex);
    if (m_activeItem) {
        m_activeItem->mousePressEvent(event);
        return;
    }

    if (m_toolType == GraphicDefine::Segment) {
        // The press itself makes a polyline; every other tool waits for the first move.
        GraphicItem* segment = createItem(GraphicDefine::Segment);
        segment->setBoundary(viewportRect());
        segment->setUserId(m_currentUserId);
        segment->setOpacity(GraphicPalette::instance()->opacity());
        applyPalette(segment, GraphicDefine::Segment);
        m_activeItem = addItem(ActiveLayer, segment);
        m_activeItem->setIsEditMode(true);
        m_activeItem->mousePressEvent(event);
        return;
    }

    const QSharedPointer<GraphicItem> hit = itemAt(event->pos(), 0, Qt::IntersectsItemShape);

    if (m_toolType == GraphicDefine::Eraser) {
        if (hit)
            pushCommand(new RemoveGraphicCommand(hit, this));
        else
            m_erasedItems.clear();
        return;
    }

    if (m_toolType != GraphicDefine::Selector) {
        // A drawing tool takes a press only on a handle of the focus item.
        GraphicController* controller = m_focusItem ? m_focusItem->controller() : nullptr;
        const int point = controller ? controller->controlPointAt(mapToScene(event->pos())) : -1;
        if (point < 0) {
            m_controlPointPressed = false;
            return;
        }
        setViewCursor(controlPointCursor(controller, point));
        m_controlPointPressed = true;
    }

    const QRectF handles = handlesArea();
    QPainterPath dirty;
    if (event->modifiers() != Qt::ControlModifier) {
        for (const QSharedPointer<GraphicItem>& item : std::as_const(m_selectedItems)) {
            item->setSelected(false);
            dirty.addPath(item->shape());
        }
        m_selectedItems.clear();
    }

    double margin = 0.0;
    if (hit) {
        if (!canOperate(hit)) {
            // The deselection stands, unpainted until the next repaint of its
            // region; only the handles that went are repainted.
            qDebug("this item cant be operate by you.");
            repaintHandles(handles);
            return;
        }
        if (hit->selectable()) {
            hit->setSelected(true);
            m_selectedItems.append(hit);
            dirty.addPath(hit->shape());
        }
        if ((!m_focusItem || m_focusItem->gid() != hit->gid()) && hit->focusable())
            setFocusItem(hit);
    }

    const QSharedPointer<GraphicItem> target = hit ? hit : m_focusItem;
    if (!hit)
        margin = 5.0;
    if (target) {
        GraphicController* controller = target->controller();
        if (controller)
            controller->mousePressEvent(event);
        if (!controller || !event->isAccepted()) {
            if (m_focusItem)
                m_focusItem->mousePressEvent(event);
            if (!event->isAccepted())
                setFocusItem(QSharedPointer<GraphicItem>());
        }
    }

    const QRectF bounds = dirty.boundingRect();
    if (bounds.width() > 0 && bounds.height() > 0)
        updateLayer(ItemLayer, regionOf(bounds, margin));
    repaintHandles(handles);
}

void GraphicScene::mouseMoveEvent(QMouseEvent* event)
{
    QMutexLocker locker(&m_itemsMutex);

    if (m_panning && !m_disableDrag) {
        // The content follows the hand.
        const QPoint delta = m_pressPoint - event->pos();
        move(QPointF(delta));
        m_pressPoint = event->pos();
        return;
    }

    if (m_toolType != GraphicDefine::Selector && !m_controlPointPressed) {
        if (m_toolType == GraphicDefine::Eraser) {
            m_mouseMoved = true;
            const QSharedPointer<GraphicItem> hit = itemAt(event->pos(), 0, Qt::IntersectsItemShape);
            if (hit && !m_erasedItems.contains(hit)) {
                // Halved once, as the sign that it is about to go.
                hit->setOpacity(hit->opacity() * 0.5);
                updateLayer(ItemLayer, regionOf(hit->boundary()));
                m_erasedItems.append(hit);
            }
            return;
        }

        if (m_mouseMoved) {
            if (m_activeItem)
                m_activeItem->mouseMoveEvent(event);
            return;
        }

        m_mouseMoved = true;
        if (m_activeItem || m_toolType == GraphicDefine::Sticker)
            return;

        GraphicItem* item = createItem(m_toolType);
        if (!item)
            return;
        item->setUserId(m_currentUserId);
        item->setOpacity(GraphicPalette::instance()->opacity());
        applyPalette(item, m_toolType);
        setFocusItem(QSharedPointer<GraphicItem>());
        deselectAll();
        // The item starts here, at the first forwarded move, not at the press.
        m_activeItem = addItem(ActiveLayer, item);
        m_activeItem->setIsEditMode(true);
        m_activeItem->mousePressEvent(event);
        return;
    }

    if (m_disableEdit)
        return;

    if (m_focusItem) {
        const QSharedPointer<GraphicItem> focus = m_focusItem;
        GraphicController* controller = focus->controller();
        if (m_moveStartPosition.isNull() && controller)
            m_moveStartPosition = controller->pressPosition();
        auto* shape = qobject_cast<AbstractGraphicShapeItem*>(focus.data());
        if (m_resizeStartPath.isEmpty() && shape)
            m_resizeStartPath = shape->outlinePath();
        if (controller)
            controller->mouseMoveEvent(event);
        if (!event->isAccepted()) {
            focus->mouseMoveEvent(event);
            if (!event->isAccepted())
                return;
        }
        m_mouseMoved = true;
        return;
    }

    m_mouseMoved = true;
    rubberBandMove(event);
}

void GraphicScene::mouseReleaseEvent(QMouseEvent* event)
{
    // Taken from the commit on; the early steps only touch gesture flags.
    std::unique_lock<SceneRecursiveMutex> lock(m_itemsMutex, std::defer_lock);
    const auto endGesture = [this] {
        m_mouseMoved = false;
        m_panning = false;
        m_mousePressed = false;
    };

    if (m_panning && !m_disableDrag) {
        setViewCursor(m_pressedKey == Qt::Key_Space ? Qt::OpenHandCursor : Qt::ArrowCursor);
        endGesture();
        return;
    }

    bool madeTextBox = false;
    if ((!m_mouseMoved || event->button() == Qt::LeftButton) && m_toolType == GraphicDefine::Text) {
        makeTextBox(event);
        madeTextBox = true;
    }

    if (!m_mouseMoved && event->button() != Qt::RightButton && !madeTextBox) {
        endGesture();
        return;
    }

    if (m_toolType == GraphicDefine::Eraser) {
        // mousePressed stays set until the next press.
        m_mouseMoved = false;
        if (!m_erasedItems.isEmpty()) {
            for (const QSharedPointer<GraphicItem>& item : std::as_const(m_erasedItems))
                item->setOpacity(item->opacity() * 2.0);
            pushCommand(new BatchRemoveGraphicCommand(m_erasedItems, this, true));
            m_erasedItems.clear();
        }
        return;
    }

    lock.lock();
    const QSharedPointer<GraphicItem> active = m_activeItem;

    if (active && m_toolType == GraphicDefine::Selector && !m_finishingSegment) {
        // The rubber band ends; the selection it made stays. The flags stay set
        // until the next press.
        const QRectF boundary = active->boundary();
        updateLayer(ActiveLayer, regionOf(boundary, 1.0));
        removeItem(ActiveLayer, active);
        updateLayer(ItemLayer, regionOf(boundary));
        m_activeItem.reset();
        return;
    }

    if (active) {
        active->mouseReleaseEvent(event);
        if (!active->isEditMode()) {
            removeItem(ActiveLayer, active);
            const QRect r = active->boundary().toRect();
            if (r.width() > 0 || r.height() > 0) {
                if (active->type() == GraphicItem::Text) {
                    // The box waits for its text; the inputer's focus loss ends it.
                    if (auto* inputer = qobject_cast<QQuickItem*>(textInputer())) {
                        inputer->setEnabled(true);
                        inputer->forceActiveFocus();
                        connect(inputer, &QQuickItem::focusChanged, this, [this, inputer](bool) { endNewTextBox(inputer); });
                    }
                    return;
                }
                pushCommand(new AddGraphicCommand(active, this));
            }
            if (active->focusable())
                setFocusItem(active);
            const QRectF boundary = active->boundary();
            updateLayer(ActiveLayer, regionOf(boundary, 1.0));
            updateLayer(ItemLayer, regionOf(boundary));
            m_activeItem.reset();
        }
    }

    if (!active && m_focusItem) {
        const QSharedPointer<GraphicItem> focus = m_focusItem;
        if (GraphicController* controller = focus->controller()) {
            controller->mouseReleaseEvent(event);
            const QPointF position = controller->pressPosition();
            auto* shape = qobject_cast<AbstractGraphicShapeItem*>(focus.data());
            if (position != m_moveStartPosition) {
                pushCommand(new MoveGraphicCommand(m_moveStartPosition, position, focus, this));
            } else if (shape && m_resizeStartPath.elementCount() > 0 && shape->outlinePath().elementCount() > 0) {
                // The drag position stayed put: a handle reshaped the item.
                pushCommand(new ResizeGraphicCommand(m_resizeStartPath, shape->outlinePath(), focus, this));
            }
            m_moveStartPosition = QPointF();
            m_resizeStartPath.clear();
        }
        if (!event->isAccepted())
            focus->mouseReleaseEvent(event);
    }

    lock.unlock();
    endGesture();
}

// --- text -------------------------------------------------------------------

void GraphicScene::makeTextBox(QMouseEvent* event)
{
    QObject* inputer = textInputer();
    if (!inputer)
        return;
    auto* item = static_cast<GraphicTextItem*>(createItem(GraphicDefine::Text));
    item->setUserId(m_currentUserId);
    item->setOpacity(GraphicPalette::instance()->opacity());
    applyPalette(item, GraphicDefine::Text);
    setFocusItem(QSharedPointer<GraphicItem>());
    deselectAll();
    QFont font;
    {
        // Held while the box is shaped too: it is in a painted layer by then.
        QMutexLocker locker(&m_itemsMutex);
        // A drag with the text tool left its own item in the active layer; only
        // this box goes on.
        m_activeItem = addItem(ActiveLayer, item);
        item->mouseMoveEvent(event);
        item->mouseReleaseEvent(event);
        item->setBoundary(QRectF(mapToScene(event->pos()), QSizeF(24, 24)));
        font = item->font();
        font.setPixelSize(int(item->boundary().height()));
        inputer->setProperty("font", font);
        item->setFont(font);
    }
    if (auto* quickInputer = qobject_cast<QQuickItem*>(inputer)) {
        quickInputer->setPosition(mapFromScene(item->boundary().topLeft()));
        quickInputer->setSize(item->boundary().size() * m_scale);
        inputer->setProperty("color", GraphicPalette::instance()->strokeColor());
        quickInputer->setVisible(true);
        // Enabled by the release once the box is taken off the active layer.
        quickInputer->setEnabled(false);
    }
}

void GraphicScene::endNewTextBox(QObject* inputer)
{
    QObject::disconnect(inputer, nullptr, nullptr, nullptr);
    if (auto* quickInputer = qobject_cast<QQuickItem*>(inputer))
        quickInputer->setVisible(false);
    const QSharedPointer<GraphicItem> item = m_activeItem;
    auto* text = qobject_cast<GraphicTextItem*>(item.data());
    if (text)
        text->setVisible(true);

    const QString content = InputLimits::typedText(inputer->property("text").toString());
    if (text && !content.isEmpty()) {
        const double w = inputer->property("contentWidth").toDouble();
        const double h = inputer->property("contentHeight").toDouble();
        text->setText(content);
        QPainterPath path;
        path.addRect(QRectF(text->boundary().topLeft(), QSizeF(w, h)));
        text->setOutlinePath(path);
        text->setBoundary(path.boundingRect());
        if (GraphicController* controller = text->controller())
            controller->update();
        applyPalette(text, GraphicDefine::Text);
        pushCommand(new AddGraphicCommand(item, this));
        deselectAll();
        setFocusItem(item);
        updateLayer(ActiveLayer, regionOf(text->boundary(), 1.0));
        updateLayer(ItemLayer, regionOf(text->boundary()));
    }
    // An empty box disappears without trace: it left the active layer at the release.
    m_activeItem.reset();
}

void GraphicScene::mouseDoubleClickEvent(QMouseEvent*)
{
    const QSharedPointer<GraphicItem> item = focusItem();
    if (!item || item->type() != GraphicItem::Text || m_toolType != GraphicDefine::Selector)
        return;
    beginTextEdit(item);
}

void GraphicScene::beginTextEdit(const QSharedPointer<GraphicItem>& item)
{
    auto* inputer = qobject_cast<QQuickItem*>(textInputer());
    if (!inputer)
        return;
    // The field is laid over the hidden item and takes its text.
    item->setVisible(false);
    const QRectF rect = mapRectFromScene(item->boundary());
    inputer->setPosition(rect.topLeft());
    inputer->setSize(rect.size());
    inputer->setProperty("text", item->property("text"));
    inputer->setVisible(true);
    inputer->setEnabled(true);
    inputer->forceActiveFocus();
    inputer->setProperty("font", item->property("font"));
    inputer->setProperty("color", item->property("color"));
    QMetaObject::invokeMethod(inputer, "selectAll");
    connect(inputer, &QQuickItem::focusChanged, this, [this, inputer, item](bool) { endTextEdit(inputer, item); });
    updateLayer(ActiveLayer, regionOf(item->boundary(), 1.0));
    updateLayer(ItemLayer, regionOf(item->boundary()));
}

void GraphicScene::endTextEdit(QObject* inputer, const QSharedPointer<GraphicItem>& edited)
{
    // Taken by value: the disconnect below releases the connection that holds `edited`.
    const QSharedPointer<GraphicItem> item = edited;
    QObject::disconnect(inputer, nullptr, nullptr, nullptr);
    auto* quickInputer = qobject_cast<QQuickItem*>(inputer);
    if (quickInputer)
        quickInputer->setVisible(false);
    item->setVisible(true);

    const QString text = InputLimits::typedText(inputer->property("text").toString());
    auto* shape = qobject_cast<AbstractGraphicShapeItem*>(item.data());
    if (text.isEmpty() || !shape || !quickInputer)
        return;

    QPainterPath path;
    path.addRect(QRectF(item->boundary().topLeft(), QSizeF(quickInputer->width(), quickInputer->height())));
    m_undoStack.beginMacro(QStringLiteral("change text"));
    m_undoStack.push(new ResizeGraphicCommand(shape->outlinePath(), path, item, this));
    reportUndoRedoStatus();
    m_undoStack.push(new TextChangeCommand(item->property("text").toString(), text, item, this));
    reportUndoRedoStatus();
    m_undoStack.endMacro();
    setFocusItem(item);
}

// --- hover and cursor -------------------------------------------------------

void GraphicScene::setItemCursor(const QSharedPointer<GraphicItem>& item, Qt::CursorShape cursor)
{
    // A held key owns the cursor, so the space bar's hand survives hovering.
    if (m_pressedKey != Qt::Key_unknown)
        return;
    if (!item)
        setViewCursor(Qt::ArrowCursor);
    else if (cursor == Qt::BlankCursor)
        setViewCursor(item->cursorShape());
    else
        setViewCursor(cursor);
}

void GraphicScene::setViewCursor(const QCursor& cursor)
{
    if (m_view)
        m_view->setCursor(cursor);
}

QObject* GraphicScene::textInputer() const
{
    return m_view ? m_view->property("textInputer").value<QObject*>() : nullptr;
}

void GraphicScene::hoverMoveEvent(QHoverEvent* event)
{
    if (m_toolType == GraphicDefine::Segment && m_activeItem) {
        // The rubber line of an open polyline follows the pointer.
        {
            QMutexLocker locker(&m_itemsMutex);
            m_activeItem->hoverMoveEvent(event);
        }
        sendMouseInfo(mapToScene(event->position()));
        return;
    }

    const QPointF position = event->position();
    const QSharedPointer<GraphicItem> hit = itemAt(position, 1, Qt::IntersectsItemShape);

    if (m_toolType != GraphicDefine::Eraser) {
        QMutexLocker locker(&m_itemsMutex);
        const QPoint point(GraphicScene::roundPixel(position.x()), GraphicScene::roundPixel(position.y()));
        GraphicController* controller = m_focusItem ? m_focusItem->controller() : nullptr;
        const int type = controller ? controller->controlPointAt(mapToScene(point)) : -1;
        if (type >= 0) {
            // Over a handle the others are not told where the pointer is.
            setViewCursor(controlPointCursor(controller, type));
            return;
        }
        if (m_toolType == GraphicDefine::Selector)
            setItemCursor(hit, Qt::BlankCursor);
        else
            setViewCursor(Qt::ArrowCursor);
    } else {
        setItemCursor(hit, Qt::PointingHandCursor);
    }
    // Every move, unthrottled and even at the same place.
    sendMouseInfo(mapToScene(position));
}

void GraphicScene::hoverLeaveEvent(QHoverEvent*)
{
    setViewCursor(Qt::ArrowCursor);
}

// --- keyboard ---------------------------------------------------------------

void GraphicScene::keyPressEvent(QKeyEvent* event)
{
    m_pressedKey = event->key();
    // Taken only by the nudge, so that other keys travel on to the host.
    event->ignore();
    QMutexLocker locker(&m_itemsMutex);
    if (event->key() == Qt::Key_Space && !event->isAutoRepeat()) {
        if (!m_mousePressed)
            setViewCursor(Qt::OpenHandCursor);
        return;
    }
    nudgeSelection(event);
}

void GraphicScene::nudgeSelection(QKeyEvent* event)
{
    const int key = event->key();
    if (!m_arrowKeys.contains(key) || m_selectedItems.isEmpty())
        return;
    // One scene unit at every scale; items in the selection were already allowed in.
    const GraphicItemList selection = m_selectedItems;
    m_undoStack.beginMacro(QStringLiteral("move selected items"));
    for (const QSharedPointer<GraphicItem>& item : selection) {
        GraphicController* controller = item->controller();
        if (!controller)
            continue;
        const QPointF from = controller->pressPosition();
        QPointF to = from;
        switch (key) {
        case Qt::Key_Right:
            to.rx() += 1;
            break;
        case Qt::Key_Left:
            to.rx() -= 1;
            break;
        case Qt::Key_Up:
            to.ry() -= 1;
            break;
        default:
            to.ry() += 1;
            break;
        }
        m_undoStack.push(new MoveGraphicCommand(from, to, item, this));
        reportUndoRedoStatus();
    }
    m_undoStack.endMacro();
    event->accept();
}

void GraphicScene::keyReleaseEvent(QKeyEvent* event)
{
    QMutexLocker locker(&m_itemsMutex);
    const int key = m_pressedKey;
    if (key == Qt::Key_Space) {
        if (!m_mousePressed)
            setViewCursor(Qt::ArrowCursor);
    } else if (key == Qt::Key_Backspace || key == Qt::Key_Delete) {
        // Pushed even for an empty selection.
        pushCommand(new BatchRemoveGraphicCommand(m_selectedItems, this, true));
    } else if (event->modifiers() & Qt::ControlModifier) {
        switch (event->key()) {
        case Qt::Key_C:
            if (!m_selectedItems.isEmpty()) {
                m_clipboardItems.clear();
                for (const QSharedPointer<GraphicItem>& item : std::as_const(m_selectedItems)) {
                    GraphicItem* clone = item->copy();
                    if (!clone)
                        continue;
                    clone->setTimestamp(qlonglong(serverTimestamp()));
                    m_clipboardItems.append(makeShared(clone));
                }
            }
            break;
        case Qt::Key_E:
            finishSegment(false);
            break;
        case Qt::Key_V: {
            // Every paste makes fresh copies with gids of their own, at the
            // places they were copied from, authored by whoever pastes. The
            // originals were selected: the copies are not.
            const GraphicItemList clipboard = m_clipboardItems;
            m_undoStack.beginMacro(QStringLiteral("past selected items"));
            for (const QSharedPointer<GraphicItem>& item : clipboard) {
                GraphicItem* copy = item->copy();
                copy->setUserId(m_currentUserId);
                copy->setTimestamp(qlonglong(serverTimestamp()));
                copy->setSelected(false);
                copy->setActiveFocus(false);
                copy->setHovered(false);
                m_undoStack.push(new AddGraphicCommand(makeShared(copy), this));
                reportUndoRedoStatus();
            }
            m_undoStack.endMacro();
            break;
        }
        default:
            break;
        }
    }
    m_pressedKey = Qt::Key_unknown;
}

// --- events the scene does not use ------------------------------------------

void GraphicScene::focusInEvent(QFocusEvent*) { }
void GraphicScene::focusOutEvent(QFocusEvent*) { }
void GraphicScene::inputMethodEvent(QInputMethodEvent*) { }
QVariant GraphicScene::inputMethodQuery(Qt::InputMethodQuery) const { return QVariant(); }
void GraphicScene::hoverEnterEvent(QHoverEvent*) { }
void GraphicScene::wheelEvent(QWheelEvent*) { }
void GraphicScene::dragEnterEvent(QDragEnterEvent*) { }
void GraphicScene::dragMoveEvent(QDragMoveEvent*) { }
void GraphicScene::dragLeaveEvent(QDragLeaveEvent*) { }
void GraphicScene::dropEvent(QDropEvent*) { }

} // namespace whiteboard
