#pragma once

#include "scene/annotatedmutex.h"

#include <QByteArray>
#include <QColor>
#include <QLoggingCategory>
#include <QObject>
#include <QRectF>
#include <QSize>
#include <QString>
#include <QThreadPool>
#include <QTransform>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

// Every export refused or failed is told once on this category, "whiteboard.export".
Q_DECLARE_LOGGING_CATEGORY(lcWhiteboardExport)

class QIODevice;
class QPainter;

namespace whiteboard {

class GraphicScene;
class PaintRecording;

// Writes the page's items to a file as SVG, PDF or pixels, on a thread of
// its own, so that a big board never holds up the GUI thread: the items are
// recorded under itemsMutex kRecordBatch at a time (PaintRecording), then
// replayed into the file's painter without the lock, as frames are.
//
// Vector files keep paths as paths and texts as texts, one scene unit to a
// pixel (SVG) or a point (PDF); pixel files are painted from the items at
// the asked scale. Both show the page's background and the item layer in
// paint order, with nothing of selection, handles or pointers.
class SceneExport : public QObject
{
    Q_OBJECT

public:
    // Pixels per scene unit of a pixel export: a 1080 x 720 page makes at
    // most 4320 x 2880 pixels (50 MB while painted).
    static constexpr double kMaxScale = 4.0;
    // Longest side of a pixel export, whatever the page's size.
    static constexpr int kMaxSide = 16384;
    // Scene units kept around the items when cropping to them.
    static constexpr int kCropMargin = 16;
    // Items recorded per hold of itemsMutex: the GUI thread waits for one
    // such batch at most (a few milliseconds on a slow machine).
    static constexpr int kRecordBatch = 128;

    explicit SceneExport(GraphicScene* scene, QObject* parent = nullptr);
    // Stops the export under way, leaving its file unwritten, and waits for it.
    ~SceneExport() override;

    // "svg", "pdf", or the image format the suffix names; empty when
    // nothing can write it.
    static QByteArray formatOf(const QString& path);
    // The format's files are vector files.
    static bool isVector(const QByteArray& format) { return format == "svg" || format == "pdf"; }
    // True on the thread that paints an export while it does: items leave
    // out what only the people at the board see, and draw long strokes as
    // paths, not as the picture frames show.
    static bool exporting();

    // GUI thread. Tries `path` (a local path) for writing and starts writing
    // it in `format` (from formatOf); finished() tells the outcome. False,
    // with a log line, when the scale is out of bounds or the file cannot be
    // opened.
    bool start(const QString& path, const QByteArray& format, double scale, bool cropToItems);

signals:
    // GUI thread: `path` is written (ok), or was not and keeps what it held.
    void finished(const QString& path, bool ok);

private:
    struct Job
    {
        QString path;
        QByteArray format;
        double scale = 1.0;
        bool cropToItems = false;
        // Read on the GUI thread, which writes them.
        QSize page;
        QColor ground;
    };
    // The export's thread: true when the file is written.
    bool run(const Job& job);
    // The page's items, recorded a batch per hold of itemsMutex, and the
    // area they are exported in (scene units).
    std::vector<std::unique_ptr<PaintRecording>> recordItems(const Job& job, QRect* area);
    // Replays the recordings into `painter`, through `toDevice`.
    void paintItems(QPainter& painter, const QTransform& toDevice, const std::vector<std::unique_ptr<PaintRecording>>& recordings);
    // Each writes one format into `file`; a failure is returned as text.
    using Painting = std::function<void(QPainter&, const QTransform&)>;
    static QString writeSvg(QIODevice* file, const Job& job, const QRect& area, const Painting& paint);
    static QString writePdf(QIODevice* file, const Job& job, const QRect& area, const Painting& paint);
    QString writePixels(QIODevice* file, const Job& job, const QRect& area, const Painting& paint);

    GraphicScene* m_scene = nullptr;
    // One thread: exports run one after another, in the order asked.
    QThreadPool m_pool;
    std::atomic<bool> m_stop { false };
    // Held by each job while it runs. The pool's own wait is invisible to
    // ThreadSanitizer; taking this after it shows that the job is over.
    SceneMutex m_jobMutex;
};

} // namespace whiteboard
