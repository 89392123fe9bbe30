#include "scene/thumbnailpass.h"

#include "scene/dirtytracker.h"
#include "scene/graphicscene.h"
#include "scene/pagepainter.h"
#include "scene/paintrecording.h"
#include "scene/scenerender.h"

#include <QDateTime>
#include <QMetaObject>
#include <QTimer>

namespace whiteboard {

ThumbnailPass::ThumbnailPass(GraphicScene* scene, SceneRender* render, DirtyTracker& dirt, PagePainter& painter)
    : m_scene(scene)
    , m_render(render)
    , m_dirt(dirt)
    , m_painter(painter)
    , m_recording(std::make_unique<PaintRecording>())
{
}

ThumbnailPass::~ThumbnailPass() = default;

void ThumbnailPass::schedule()
{
    if (!m_dirt.thumbnailsDue())
        return;
    if (!m_timer) {
        m_timer = new QTimer(m_render);
        m_timer->setSingleShot(true);
        QObject::connect(m_timer, &QTimer::timeout, m_render, [this] { run(); });
    }
    const qint64 wait = m_lastTime + kInterval - QDateTime::currentMSecsSinceEpoch();
    if (wait <= 0) {
        run();
    } else if (!m_timer->isActive()) {
        m_timer->start(int(wait));
    }
}

void ThumbnailPass::stop()
{
    if (m_timer)
        m_timer->stop();
}

void ThumbnailPass::run()
{
    {
        SceneLocker locker(&m_mutex);
        if (!update())
            return;
    }
    m_lastTime = QDateTime::currentMSecsSinceEpoch();
    // The scene's images are the GUI thread's: handed over there.
    GraphicScene* scene = m_scene;
    QMetaObject::invokeMethod(scene, [scene] {
        if (SceneRender* render = scene->renderer())
            render->publishThumbnails();
    }, Qt::QueuedConnection);
}

void ThumbnailPass::catchUp()
{
    {
        // Waits for a pass under way; before the first frame there is
        // nothing to catch up with.
        SceneLocker locker(&m_mutex);
        if (!m_large.isNull())
            update();
    }
    publish();
}

void ThumbnailPass::publish()
{
    QImage large;
    QImage small;
    {
        SceneLocker locker(&m_mutex);
        if (m_serial == m_publishedSerial)
            return;
        m_publishedSerial = m_serial;
        large = m_large;
        small = m_small;
    }
    m_scene->setThumbnails(large, small);
}

bool ThumbnailPass::update()
{
    GraphicScene& scene = *m_scene;
    QRegion dirty;
    QTransform toThumbnail;
    {
        SceneLocker locker(&scene.itemsMutex());
        const QSize page = scene.sceneSize();
        const QSize size = scene.thumbnailSize();
        bool whole = m_large.isNull() || page != m_page || m_large.size() != size;
        QRegion changed;
        // Taken under itemsMutex: a change recorded from here on is either
        // seen by this recording or left for the next pass.
        if (!m_dirt.takeForThumbnails(&whole, &changed))
            return true;
        toThumbnail.scale(double(size.width()) / page.width(), double(size.height()) / page.height());
        if (whole) {
            m_large = QImage(size, QImage::Format_ARGB32_Premultiplied);
            dirty = QRegion(m_large.rect());
            m_page = page;
        } else {
            dirty = PagePainter::coarse(PagePainter::imageRegion(changed, toThumbnail, scene.paintMargin()).intersected(m_large.rect()));
        }
        m_smallSize = scene.smallThumbnailSize();
        m_recording->record(PagePainter::itemsMeeting(scene, GraphicScene::ItemLayer, dirty, toThumbnail, scene.paintMargin()),
                            PagePainter::kRenderHints, scene.paintMargin());
    }
    m_painter.paint(m_large, *m_recording, dirty, Qt::transparent, dirty, toThumbnail, [this] { return m_render->quitRequested(); });
    m_recording->clear();
    if (m_render->quitRequested()) {
        m_large = QImage();
        return false;
    }
    // Scaled from the large one rather than painted again from every item.
    m_small = m_large.scaled(m_smallSize, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    ++m_serial;
    ++m_passes;
    return true;
}

} // namespace whiteboard
