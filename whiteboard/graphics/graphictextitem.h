#pragma once

#include "graphics/graphicframeitem.h"

#include <QFont>
#include <QList>
#include <QRectF>
#include <QString>
#include <QTextLayout>

#include <memory>

namespace whiteboard {

// A block of text in a rectangular frame. Editing happens in the host's input
// field; the item only keeps the text, the font and the frame.
class GraphicTextItem : public GraphicFrameItem
{
    Q_OBJECT
    Q_PROPERTY(QString text READ text WRITE setText NOTIFY textChanged)
    Q_PROPERTY(QFont font READ font WRITE setFont NOTIFY fontChanged)

public:
    GraphicTextItem(const QString& text, const QFont& font, GraphicScene* scene = nullptr,
                    GraphicItem* parent = nullptr);
    GraphicTextItem(const GraphicTextItem& other);

    QString text() const { return m_text; }
    void setText(const QString& text);
    QFont font() const { return m_font; }
    void setFont(const QFont& font);
    int alignment() const { return m_alignment; }
    void setAlignment(int alignment) { m_alignment = alignment; }

    // Gives a received item a one-line frame at `position` sized by its font.
    void layoutAt(const QPointF& position);

    void paint(QPainter* painter, const QRectF* rect = nullptr) override;
    GraphicItem* copy() override;
    GraphicController* makeController() override;
    bool collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const override;

signals:
    void textChanged();
    void fontChanged();

private:
    // A long text laid out once per change of text or font, so that a frame
    // draws only the lines it shows: laying out 64 Ki characters takes
    // about as long as a frame may, and a frame holds itemsMutex. Layouts
    // stay on the thread that made them, as their fonts do.
    static constexpr int kMaxDirectLength = 2000;
    void paintLaidOut(QPainter* painter, const QPen& pen);

    // A received text is stored without a change signal.
    friend class ItemFields;

    QString m_text;
    QFont m_font;
    int m_alignment = 1;
    // Render thread only; made on first use, with the text and font it is of.
    std::unique_ptr<QTextLayout> m_layout;
    QString m_laidOutText;
    QFont m_laidOutFont;
    // How far each line was laid out; a wider frame lays it out again.
    double m_laidOutWidth = 0.0;
};

} // namespace whiteboard
