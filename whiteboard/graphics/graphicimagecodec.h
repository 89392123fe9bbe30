#pragma once

#include "scene/annotatedmutex.h"

#include <QByteArray>
#include <QHash>
#include <QImage>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QRect>
#include <QSize>
#include <QString>
#include <QThreadPool>

#include <functional>
#include <future>

namespace whiteboard {

class GraphicImage;
class GraphicScene;

// Pictures between their bytes and their pixels. The wire form is the
// toolkit's data stream of a QImage (a PNG behind a marker); decoding one of
// 4,096 px takes longer than a frame, so received pictures are decoded on a
// pool of the scene's own and handed to their item on the GUI thread.
class GraphicImageCodec : public QObject
{
    Q_OBJECT

public:
    explicit GraphicImageCodec(GraphicScene* scene);
    // Waits for the decodes under way; their results are dropped.
    ~GraphicImageCodec() override;

    // GUI thread, possibly under itemsMutex. Decodes `bytes` for `item`: the
    // item gets the picture when it is ready if it still holds these very
    // bytes then (a later message may have brought others) and still
    // exists. The decode starts from the event loop, so that an item made
    // only to be thrown away (a wire-form round trip) costs nothing.
    void decode(GraphicImage* item, const QByteArray& bytes);
    // GUI thread: hands out every decode asked for so far, waiting for them.
    // For harnesses without an event loop.
    void waitForDone();
    // Decodes asked for and not yet handed out.
    int pending() const { return int(m_queued.size() + m_running.size()); }

    // Any thread. Runs `work` on the pool, then repaints `region` of the
    // item layer from the GUI thread. `work` must hold no item: it may end
    // after its item.
    void run(std::function<void()> work, const QRect& region);

    // Any thread. The picture of a wire form, scaled down to the picture
    // limit; null if the bytes do not decode.
    static QImage decodeBytes(const QByteArray& bytes);
    // Any thread. The wire form of `image`.
    static QByteArray encode(const QImage& image);
    // Any thread. The picture of a file the host names, scaled down to the
    // picture limit while it is read; null, with `error` set, if it cannot be
    // read. Either is told with one log line.
    static QImage readFile(const QString& path, QString* error = nullptr);
    // GUI thread. Starts reading the file the host named for the next
    // pictures placed, on the pool: reading and scaling a large one takes
    // longer than a frame.
    void preload(const QString& path);
    // GUI thread. readFile(), from the preloaded picture of `path` if there
    // is one (waiting for it if it is still being read).
    QImage readPreloaded(const QString& path, QString* error);

signals:
    // GUI thread: a received picture went to its item.
    void pictureDecoded();

private:
    struct Request
    {
        QPointer<GraphicImage> item;
        QByteArray bytes;
    };

    // A file read: the picture, or why there is none; what was scaled.
    struct Reading
    {
        QImage image;
        QString error;
        QSize scaledFrom;
    };
    static Reading read(const QString& path);
    static QImage told(const QString& path, const Reading& reading, QString* error);

    void startQueued();
    void hand(quint64 ticket, const QImage& image);

    GraphicScene* m_scene;
    QList<Request> m_queued;
    // Decodes under way, by ticket; the pool's workers see only the ticket.
    QHash<quint64, Request> m_running;
    quint64 m_lastTicket = 0;
    QString m_preloadedPath;
    std::shared_future<Reading> m_preloaded;
    bool m_startPosted = false;
    QThreadPool m_pool;
    // Taken by each task as it ends and by the destructor after the pool is
    // done: orders what a task made before its end, for ThreadSanitizer, which
    // does not see QThreadPool's own wait.
    SceneMutex m_taskEnd;
};

} // namespace whiteboard
