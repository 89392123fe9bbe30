#include "relay/relaymetrics.h"

#include <QFile>

#include <unistd.h>

namespace relay {

namespace {

// Resident set size from /proc/self/statm (its second field, in pages).
qint64 residentBytes()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields.at(1).toLongLong() * ::sysconf(_SC_PAGESIZE) : 0;
}

void family(QByteArray& out, const char* name, const char* type, const char* help)
{
    out += QByteArray("# HELP ") + name + ' ' + help + "\n# TYPE " + name + ' ' + type + '\n';
}

void sample(QByteArray& out, const QByteArray& name, double value)
{
    out += name + ' ' + QByteArray::number(value, 'g', 17) + '\n';
}

} // namespace

RelayMetrics& RelayMetrics::instance()
{
    static RelayMetrics metrics;
    return metrics;
}

void RelayMetrics::countMessage(const char* kind)
{
    ++m_messages[QByteArray(kind)];
}

void RelayMetrics::refused(const char* reason)
{
    ++m_refusals[QByteArray(reason)];
}

void RelayMetrics::observeBatch(double seconds)
{
    for (size_t i = 0; i < kBatchBuckets.size(); ++i) {
        if (seconds <= kBatchBuckets[i])
            ++m_batchBuckets[i];
    }
    ++m_batchCount;
    m_batchSum += seconds;
}

QByteArray RelayMetrics::exposition(const Gauges& gauges) const
{
    QByteArray out;
    family(out, "whiteboard_relay_connections", "gauge", "Open participant connections.");
    sample(out, "whiteboard_relay_connections", gauges.connections);
    family(out, "whiteboard_relay_boards_open", "gauge", "Boards held in memory, idle ones not yet unloaded included.");
    sample(out, "whiteboard_relay_boards_open", gauges.boardsOpen);
    family(out, "whiteboard_relay_store_queue_depth", "gauge", "Messages waiting to be stored, over every board.");
    sample(out, "whiteboard_relay_store_queue_depth", double(gauges.queueDepth));

    family(out, "whiteboard_relay_messages_total", "counter", "Messages received from participants, by kind.");
    for (auto it = m_messages.cbegin(); it != m_messages.cend(); ++it)
        sample(out, "whiteboard_relay_messages_total{kind=\"" + it.key() + "\"}", double(it.value()));
    family(out, "whiteboard_relay_refusals_total", "counter", "Refused connections, actions and refusing closes, by reason.");
    for (auto it = m_refusals.cbegin(); it != m_refusals.cend(); ++it)
        sample(out, "whiteboard_relay_refusals_total{reason=\"" + it.key() + "\"}", double(it.value()));

    family(out, "whiteboard_relay_store_batch_seconds", "histogram", "Time of one store batch, from its begin to its commit.");
    for (size_t i = 0; i < kBatchBuckets.size(); ++i)
        sample(out, "whiteboard_relay_store_batch_seconds_bucket{le=\"" + QByteArray::number(kBatchBuckets[i], 'g', 6) + "\"}",
               double(m_batchBuckets[i]));
    sample(out, "whiteboard_relay_store_batch_seconds_bucket{le=\"+Inf\"}", double(m_batchCount));
    sample(out, "whiteboard_relay_store_batch_seconds_sum", m_batchSum);
    sample(out, "whiteboard_relay_store_batch_seconds_count", double(m_batchCount));

    family(out, "process_resident_memory_bytes", "gauge", "Resident memory size in bytes.");
    sample(out, "process_resident_memory_bytes", double(residentBytes()));
    return out;
}

} // namespace relay
