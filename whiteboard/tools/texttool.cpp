#include "tools/texttool.h"

#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphiccontroller.h"
#include "graphics/graphicpalette.h"
#include "graphics/graphictextitem.h"
#include "inputlimits.h"
#include "scene/addgraphiccommand.h"
#include "scene/graphicscene.h"
#include "scene/resizegraphiccommand.h"
#include "scene/textchangecommand.h"
#include "tools/gesture.h"

#include <QMouseEvent>
#include <QMutexLocker>
#include <QQuickItem>

namespace whiteboard {

void TextTool::end(QMouseEvent* event)
{
    // Without a move the press placed nothing, so the release always goes on.
    if (!m_gesture.mouseMoved || event->button() == Qt::LeftButton)
        makeBox(event);
    finish(event);
}

void TextTool::awaitText()
{
    if (auto* inputer = qobject_cast<QQuickItem*>(m_scene->textInputer())) {
        inputer->setEnabled(true);
        inputer->forceActiveFocus();
        QObject::connect(inputer, &QQuickItem::focusChanged, m_scene, [this, inputer](bool) { endNewBox(inputer); });
    }
}

void TextTool::makeBox(QMouseEvent* event)
{
    QObject* inputer = m_scene->textInputer();
    if (!inputer)
        return;
    auto* item = static_cast<GraphicTextItem*>(m_scene->createItem(GraphicDefine::Text));
    styleNewItem(item, GraphicDefine::Text);
    m_scene->setFocusItem(QSharedPointer<GraphicItem>());
    m_scene->deselectAll();
    {
        // Held while the box is shaped too: it is in a painted layer by then.
        QMutexLocker locker(&m_scene->itemsMutex());
        // A drag with the text tool left its own item in the active layer; only
        // this box goes on.
        m_gesture.activeItem = m_scene->addItem(GraphicScene::ActiveLayer, item);
        item->mouseMoveEvent(event);
        item->mouseReleaseEvent(event);
        item->setBoundary(QRectF(m_scene->mapToScene(event->pos()), QSizeF(24, 24)));
        QFont font = item->font();
        font.setPixelSize(int(item->boundary().height()));
        inputer->setProperty("font", font);
        item->setFont(font);
    }
    if (auto* quickInputer = qobject_cast<QQuickItem*>(inputer)) {
        quickInputer->setPosition(m_scene->mapFromScene(item->boundary().topLeft()));
        quickInputer->setSize(item->boundary().size() * m_scene->scale());
        inputer->setProperty("color", GraphicPalette::instance()->strokeColor());
        quickInputer->setVisible(true);
        // Enabled by the release once the box is taken off the active layer.
        quickInputer->setEnabled(false);
    }
}

void TextTool::endNewBox(QObject* inputer)
{
    QObject::disconnect(inputer, nullptr, nullptr, nullptr);
    if (auto* quickInputer = qobject_cast<QQuickItem*>(inputer))
        quickInputer->setVisible(false);
    const QSharedPointer<GraphicItem> item = m_gesture.activeItem;
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
        m_scene->applyPalette(text, GraphicDefine::Text);
        m_scene->pushCommand(new AddGraphicCommand(item, m_scene));
        m_scene->deselectAll();
        m_scene->setFocusItem(item);
        m_scene->updateLayer(GraphicScene::ActiveLayer, regionOf(text->boundary(), 1.0));
        m_scene->updateLayer(GraphicScene::ItemLayer, regionOf(text->boundary()));
    }
    // An empty box disappears without trace: it left the active layer at the release.
    m_gesture.activeItem.reset();
}

void TextTool::beginEdit(const QSharedPointer<GraphicItem>& item)
{
    auto* inputer = qobject_cast<QQuickItem*>(m_scene->textInputer());
    if (!inputer)
        return;
    // The field is laid over the hidden item and takes its text.
    item->setVisible(false);
    const QRectF rect = m_scene->mapRectFromScene(item->boundary());
    inputer->setPosition(rect.topLeft());
    inputer->setSize(rect.size());
    inputer->setProperty("text", item->property("text"));
    inputer->setVisible(true);
    inputer->setEnabled(true);
    inputer->forceActiveFocus();
    inputer->setProperty("font", item->property("font"));
    inputer->setProperty("color", item->property("color"));
    QMetaObject::invokeMethod(inputer, "selectAll");
    QObject::connect(inputer, &QQuickItem::focusChanged, m_scene,
                     [this, inputer, item](bool) { endEdit(inputer, item); });
    m_scene->updateLayer(GraphicScene::ActiveLayer, regionOf(item->boundary(), 1.0));
    m_scene->updateLayer(GraphicScene::ItemLayer, regionOf(item->boundary()));
}

void TextTool::endEdit(QObject* inputer, const QSharedPointer<GraphicItem>& edited)
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
    QUndoStack& history = m_scene->undoStack();
    history.beginMacro(QStringLiteral("change text"));
    history.push(new ResizeGraphicCommand(shape->outlinePath(), path, item, m_scene));
    m_scene->reportUndoRedoStatus();
    history.push(new TextChangeCommand(item->property("text").toString(), text, item, m_scene));
    m_scene->reportUndoRedoStatus();
    history.endMacro();
    m_scene->setFocusItem(item);
}

} // namespace whiteboard
