#include "scene/sceneexport.h"

#include "graphics/graphicitem.h"
#include "scene/graphicscene.h"
#include "scene/layerindex.h"
#include "scene/paintrecording.h"

#include <QFileInfo>
#include <QImageWriter>
#include <QMutexLocker>
#include <QPageLayout>
#include <QPageSize>
#include <QPainter>
#include <QPdfWriter>
#include <QSaveFile>
#include <QSvgGenerator>
#include <QThread>

#include <cmath>
#include <memory>
#include <vector>

Q_LOGGING_CATEGORY(lcWhiteboardExport, "whiteboard.export")

namespace whiteboard {

namespace {

// The hints frames and thumbnails paint with: a pixel export at scale 1 is
// the thumbnail's picture.
constexpr QPainter::RenderHints kRenderHints = QPainter::Antialiasing | QPainter::TextAntialiasing | QPainter::SmoothPixmapTransform;

thread_local bool t_exporting = false;

struct ExportingScope
{
    ExportingScope() { t_exporting = true; }
    ~ExportingScope() { t_exporting = false; }
    ExportingScope(const ExportingScope&) = delete;
    ExportingScope& operator=(const ExportingScope&) = delete;
};

// Scene units: the page, or what its items cover grown by the crop margin
// and kept within the page; the page when there are no items.
QRect exportRect(const QSize& page, const GraphicItemList& items, double paintMargin, bool cropToItems)
{
    const QRect whole(QPoint(0, 0), page);
    if (!cropToItems || items.isEmpty())
        return whole;
    QRectF covered;
    for (const QSharedPointer<GraphicItem>& item : items)
        covered = covered.united(item->boundary());
    const double grow = paintMargin + SceneExport::kCropMargin;
    const QRect area = covered.adjusted(-grow, -grow, grow, grow).toAlignedRect().intersected(whole);
    return area.isEmpty() ? whole : area;
}

} // namespace

SceneExport::SceneExport(GraphicScene* scene, QObject* parent)
    : QObject(parent)
    , m_scene(scene)
{
    m_pool.setMaxThreadCount(1);
    m_pool.setObjectName(QStringLiteral("whiteboard_export"));
}

SceneExport::~SceneExport()
{
    m_stop = true;
    m_pool.waitForDone();
    SceneLocker locker(&m_jobMutex);
}

QByteArray SceneExport::formatOf(const QString& path)
{
    const QByteArray suffix = QFileInfo(path).suffix().toLower().toLatin1();
    if (suffix == "svg" || suffix == "pdf")
        return suffix;
    return !suffix.isEmpty() && QImageWriter::supportedImageFormats().contains(suffix) ? suffix : QByteArray();
}

bool SceneExport::exporting()
{
    return t_exporting;
}

bool SceneExport::start(const QString& path, const QByteArray& format, double scale, bool cropToItems)
{
    if (!(std::isfinite(scale) && scale > 0.0 && scale <= kMaxScale)) {
        qCWarning(lcWhiteboardExport, "refused export to %s: scale %g beyond 0 to %g", qPrintable(path), scale, kMaxScale);
        return false;
    }
    const QSize page = m_scene->sceneSize();
    if (!isVector(format) && std::max(page.width(), page.height()) * scale > kMaxSide) {
        qCWarning(lcWhiteboardExport, "refused export to %s: more than %d pixels a side", qPrintable(path), kMaxSide);
        return false;
    }
    {
        // Tried here, so that the caller hears at once of a path it cannot
        // write; the export writes through a file of its own.
        QSaveFile probe(path);
        if (!probe.open(QIODevice::WriteOnly)) {
            qCWarning(lcWhiteboardExport, "cannot export to %s: %s", qPrintable(path), qPrintable(probe.errorString()));
            return false;
        }
        probe.cancelWriting();
    }
    const Job job { path, format, scale, cropToItems, page, m_scene->backgroundColor() };
    m_pool.start([this, job] {
        SceneLocker locker(&m_jobMutex);
        const bool ok = run(job);
        if (m_stop)
            return;
        QMetaObject::invokeMethod(this, [this, path = job.path, ok] { emit finished(path, ok); }, Qt::QueuedConnection);
    });
    return true;
}

std::vector<std::unique_ptr<PaintRecording>> SceneExport::recordItems(const Job& job, QRect* area)
{
    GraphicItemList items;
    double margin = 0.0;
    {
        SceneLocker locker(&m_scene->itemsMutex());
        if (const LayerIndex* index = m_scene->layerIndex(GraphicScene::ItemLayer)) {
            items = index->query(QRectF(QPointF(0, 0), QSizeF(job.page)));
            LayerIndex::sort(items, Qt::AscendingOrder);
        }
        margin = m_scene->paintMargin();
        *area = exportRect(job.page, items, margin, job.cropToItems);
    }
    // A batch per hold of the lock: the GUI thread waits for one at most.
    // Items changed between batches are taken as they are then.
    std::vector<std::unique_ptr<PaintRecording>> recordings;
    for (qsizetype at = 0; at < items.size() && !m_stop; at += kRecordBatch) {
        auto recording = std::make_unique<PaintRecording>();
        {
            SceneLocker locker(&m_scene->itemsMutex());
            recording->record(items.mid(at, kRecordBatch), kRenderHints, margin);
        }
        recordings.push_back(std::move(recording));
        // The lock is not fair: without a pause this thread takes it again
        // before a woken GUI thread runs, which then waits for batch after batch.
        QThread::yieldCurrentThread();
    }
    return recordings;
}

void SceneExport::paintItems(QPainter& painter, const QTransform& toDevice, const std::vector<std::unique_ptr<PaintRecording>>& recordings)
{
    const auto stop = [this] { return m_stop.load(); };
    // Texts are painted live, each under the lock, into the file's own
    // painter: so they stay texts in a vector file.
    for (const std::unique_ptr<PaintRecording>& recording : recordings) {
        // Each batch finds the painter as the first did: a replay leaves
        // the last item's opacity, hints and transform behind.
        painter.save();
        painter.setRenderHints(kRenderHints);
        painter.setTransform(toDevice);
        recording->replay(&painter, m_scene->itemsMutex(), stop);
        painter.restore();
        if (m_stop)
            return;
    }
}

QString SceneExport::writeSvg(QIODevice* file, const Job& job, const QRect& area, const Painting& paint)
{
    const QRect frame(QPoint(0, 0), area.size());
    QSvgGenerator svg;
    svg.setOutputDevice(file);
    svg.setSize(area.size());
    svg.setViewBox(frame);
    // A viewer shows a scene unit as a CSS pixel.
    svg.setResolution(96);
    svg.setTitle(QFileInfo(job.path).completeBaseName());
    QPainter painter(&svg);
    if (job.ground.isValid())
        painter.fillRect(frame, job.ground);
    paint(painter, QTransform::fromTranslate(-area.x(), -area.y()));
    return {};
}

QString SceneExport::writePdf(QIODevice* file, const Job& job, const QRect& area, const Painting& paint)
{
    QPdfWriter pdf(file);
    // A scene unit to a point, on one page of the exported size.
    pdf.setResolution(72);
    pdf.setPageLayout(QPageLayout(QPageSize(QSizeF(area.size()), QPageSize::Point, QString(), QPageSize::ExactMatch),
                                  QPageLayout::Portrait, QMarginsF()));
    pdf.setTitle(QFileInfo(job.path).completeBaseName());
    pdf.setCreator(QStringLiteral("com.im.whiteboard"));
    QPainter painter;
    if (!painter.begin(&pdf))
        return QStringLiteral("the PDF cannot be started");
    if (job.ground.isValid())
        painter.fillRect(QRect(QPoint(0, 0), area.size()), job.ground);
    paint(painter, QTransform::fromTranslate(-area.x(), -area.y()));
    painter.end();
    return {};
}

QString SceneExport::writePixels(QIODevice* file, const Job& job, const QRect& area, const Painting& paint)
{
    const QSize pixels(std::max(1, GraphicScene::roundPixel(area.width() * job.scale)),
                       std::max(1, GraphicScene::roundPixel(area.height() * job.scale)));
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull())
        return QStringLiteral("no memory for %1 x %2 pixels").arg(pixels.width()).arg(pixels.height());
    // Filled as the export at scale 1 fills it, invalid colour included.
    image.fill(job.ground);
    {
        QPainter painter(&image);
        paint(painter, QTransform::fromTranslate(-area.x(), -area.y()) * QTransform::fromScale(job.scale, job.scale));
    }
    if (m_stop)
        return {};
    QImageWriter writer(file, job.format);
    return writer.write(image) ? QString() : writer.errorString();
}

bool SceneExport::run(const Job& job)
{
    const ExportingScope scope;
    QRect area;
    const std::vector<std::unique_ptr<PaintRecording>> recordings = recordItems(job, &area);
    QSaveFile file(job.path);
    if (!file.open(QIODevice::WriteOnly)) {
        qCWarning(lcWhiteboardExport, "cannot export to %s: %s", qPrintable(job.path), qPrintable(file.errorString()));
        return false;
    }
    const Painting paint = [this, &recordings](QPainter& painter, const QTransform& toDevice) {
        paintItems(painter, toDevice, recordings);
    };
    QString failure;
    if (job.format == "svg")
        failure = writeSvg(&file, job, area, paint);
    else if (job.format == "pdf")
        failure = writePdf(&file, job, area, paint);
    else
        failure = writePixels(&file, job, area, paint);
    if (m_stop)
        return false;
    if (failure.isEmpty() && !file.commit())
        failure = file.errorString();
    if (!failure.isEmpty()) {
        qCWarning(lcWhiteboardExport, "export to %s failed: %s", qPrintable(job.path), qPrintable(failure));
        return false;
    }
    return true;
}

} // namespace whiteboard
