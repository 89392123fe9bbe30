#include "graphics/graphicimagecodec.h"

#include "graphics/graphicimage.h"
#include "inputlimits.h"
#include "scene/graphicscene.h"

#include <QCoreApplication>
#include <QDataStream>
#include <QIODevice>
#include <QImageReader>
#include <QMutexLocker>
#include <QRegion>

#include <algorithm>
#include <utility>

namespace whiteboard {

namespace {

bool overLimit(const QSize& size)
{
    return std::max(size.width(), size.height()) > InputLimits::kMaxPictureSide;
}

QImage scaledToLimit(const QImage& image)
{
    return image.scaled(InputLimits::kMaxPictureSide, InputLimits::kMaxPictureSide, Qt::KeepAspectRatio,
                        Qt::SmoothTransformation);
}

} // namespace

GraphicImageCodec::GraphicImageCodec(GraphicScene* scene)
    : QObject(scene)
    , m_scene(scene)
{
    m_pool.setObjectName(QStringLiteral("picture_decoder"));
}

GraphicImageCodec::~GraphicImageCodec()
{
    // A decode that ends now posts its result to this object, whose end
    // drops it.
    m_pool.waitForDone();
    SceneLocker locker(&m_taskEnd);
}

void GraphicImageCodec::decode(GraphicImage* item, const QByteArray& bytes)
{
    m_queued.append({ item, bytes });
    if (m_startPosted)
        return;
    m_startPosted = true;
    QMetaObject::invokeMethod(this, &GraphicImageCodec::startQueued, Qt::QueuedConnection);
}

void GraphicImageCodec::startQueued()
{
    m_startPosted = false;
    const QList<Request> queued = std::exchange(m_queued, {});
    for (const Request& request : queued) {
        // Gone, or holding other bytes by now: nobody waits for these.
        if (!request.item || !request.item->pictureBytes().isSharedWith(request.bytes))
            continue;
        const quint64 ticket = ++m_lastTicket;
        m_running.insert(ticket, request);
        // The worker sees the bytes only; the item stays on the GUI thread.
        const QByteArray bytes = request.bytes;
        m_pool.start([this, ticket, bytes] {
            const QImage image = decodeBytes(bytes);
            QMetaObject::invokeMethod(this, [this, ticket, image] { hand(ticket, image); }, Qt::QueuedConnection);
            SceneLocker locker(&m_taskEnd);
        });
    }
}

void GraphicImageCodec::hand(quint64 ticket, const QImage& image)
{
    const Request request = m_running.take(ticket);
    GraphicImage* item = request.item.data();
    if (item && item->pictureBytes().isSharedWith(request.bytes)) {
        const QString key = m_scene->addImage(image);
        QRect dirty;
        {
            // The render thread reads the key as it paints.
            SceneLocker locker(&m_scene->itemsMutex());
            item->m_imageKey = key;
            item->m_awaitingPixels = false;
            dirty = item->boundary().toAlignedRect();
        }
        m_scene->invalidate(dirty, GraphicScene::ItemLayer);
    }
    emit pictureDecoded();
}

void GraphicImageCodec::run(std::function<void()> work, const QRect& region)
{
    m_pool.start([this, work = std::move(work), region] {
        work();
        QMetaObject::invokeMethod(this, [this, region] { m_scene->invalidate(region, GraphicScene::ItemLayer); },
                                  Qt::QueuedConnection);
        SceneLocker locker(&m_taskEnd);
    });
}

void GraphicImageCodec::waitForDone()
{
    startQueued();
    m_pool.waitForDone();
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
}

QImage GraphicImageCodec::decodeBytes(const QByteArray& bytes)
{
    QDataStream stream(bytes);
    QImage image;
    // Bytes that do not decode leave a null image.
    stream >> image;
    // A format that does not tell its size before decoding got past the
    // guard's look at the header.
    return overLimit(image.size()) ? scaledToLimit(image) : image;
}

QByteArray GraphicImageCodec::encode(const QImage& image)
{
    // The stream keeps the toolkit's default version, which all clients
    // must share.
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream << image;
    return bytes;
}

GraphicImageCodec::Reading GraphicImageCodec::read(const QString& path)
{
    Reading reading;
    QImageReader reader(path);
    // A large picture is shrunk while it is read, where the format allows.
    const QSize size = reader.size();
    if (overLimit(size)) {
        reading.scaledFrom = size;
        reader.setScaledSize(size.scaled(InputLimits::kMaxPictureSide, InputLimits::kMaxPictureSide, Qt::KeepAspectRatio));
    }
    reading.image = reader.read();
    if (reading.image.isNull()) {
        reading.error = reader.errorString();
    } else if (overLimit(reading.image.size())) {
        // A format that could not tell its size before decoding.
        reading.scaledFrom = reading.image.size();
        reading.image = scaledToLimit(reading.image);
    }
    return reading;
}

QImage GraphicImageCodec::told(const QString& path, const Reading& reading, QString* error)
{
    // Told by the caller's thread, not the pool's.
    if (reading.scaledFrom.isValid()) {
        qCWarning(lcWhiteboardInput, "clamped picture %s: scaled down from %dx%d", qPrintable(path),
                  reading.scaledFrom.width(), reading.scaledFrom.height());
    }
    if (reading.image.isNull()) {
        qCWarning(lcWhiteboardInput, "refused picture %s: %s", qPrintable(path), qPrintable(reading.error));
        if (error)
            *error = reading.error;
    }
    return reading.image;
}

QImage GraphicImageCodec::readFile(const QString& path, QString* error)
{
    return told(path, read(path), error);
}

void GraphicImageCodec::preload(const QString& path)
{
    m_preloadedPath = path;
    auto task = std::make_shared<std::packaged_task<Reading()>>([path] { return read(path); });
    m_preloaded = task->get_future().share();
    m_pool.start([task] { (*task)(); });
}

QImage GraphicImageCodec::readPreloaded(const QString& path, QString* error)
{
    if (path != m_preloadedPath || !m_preloaded.valid())
        return readFile(path, error);
    return told(path, m_preloaded.get(), error);
}

} // namespace whiteboard
