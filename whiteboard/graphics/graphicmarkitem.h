#pragma once

#include "graphics/abstractgraphicshapeitem.h"

#include <QColor>
#include <QFont>
#include <QPointF>
#include <QSizeF>
#include <QString>

class QFontMetricsF;

namespace whiteboard {

// Where another user's pointer is: a small arrow with a coloured name label
// at its lower right, the same size on screen at any zoom. It lives in the
// mark layer, is never hit, never serialised and never on the wire as an
// item; the user's leave message removes it, and so does the view when its
// connection goes offline. Its frame is set on the GUI thread from its text
// (place()), never by painting, so the first frame paints it whole.
class GraphicMarkItem : public AbstractGraphicShapeItem
{
    Q_OBJECT
    Q_PROPERTY(QString text READ text WRITE setText NOTIFY textChanged)
    Q_PROPERTY(QFont font READ font WRITE setFont NOTIFY fontChanged)

public:
    GraphicMarkItem(const QString& text, const QFont& font, GraphicScene* scene = nullptr, GraphicItem* parent = nullptr);
    GraphicMarkItem(const GraphicMarkItem& other);

    QString text() const { return m_text; }
    void setText(const QString& text);
    QFont font() const { return m_font; }
    void setFont(const QFont& font);
    QColor markColor() const { return m_markColor; }

    // The label colour of a user. Neighbouring ids share a colour in pairs,
    // and a negative index gives an invalid colour: both are kept as users
    // know them.
    static QColor colorForUser(int userId);

    // The arrow and the label, in screen pixels.
    QSizeF extent() const;
    // The frame at `position` (scene units) for the zoom `scale`.
    void place(const QPointF& position, double scale);
    // Where it may be painted now, at `scale` or at the zoom of its last
    // place(): what a move or a removal repaints.
    QRectF paintedArea(double scale) const;

    void paint(QPainter* painter, const QRectF* rect = nullptr) override;
    GraphicItem* copy() override;
    bool collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const override;

signals:
    void textChanged();
    void fontChanged();

private:
    void updateMarkColor();
    QString label(const QFontMetricsF& metrics) const;
    static QSizeF labelSize(const QFontMetricsF& metrics, const QString& shown);

    // Kept from the item's first form; nothing reads them.
    QPointF m_startPoint;
    bool m_pressed = false;

    QString m_text;
    QFont m_font;
    // That of the user id, set with it on the GUI thread: painting only reads it.
    QColor m_markColor;
};

} // namespace whiteboard
