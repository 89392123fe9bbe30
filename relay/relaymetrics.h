#pragma once

#include <QByteArray>
#include <QMap>

#include <QtGlobal>

#include <array>

namespace relay {

// The relay's counters for /metrics. Everything that counts runs on the
// relay's one thread, as does the admin endpoint that reads them: no locks.
class RelayMetrics
{
public:
    // What is read from the server when the page is asked for.
    struct Gauges
    {
        int connections = 0;
        int boardsOpen = 0;
        qint64 queueDepth = 0;
    };

    static RelayMetrics& instance();

    // A message a participant sent: "join", "change" or "pointer".
    void countMessage(const char* kind);
    // Every refusal and refusing close, by a short reason token.
    void refused(const char* reason);
    // How long one store batch took, begin to commit.
    void observeBatch(double seconds);

    // The page in Prometheus' text exposition format (version 0.0.4).
    QByteArray exposition(const Gauges& gauges) const;

    // Upper bounds of the batch histogram's buckets, in seconds.
    static constexpr std::array<double, 10> kBatchBuckets { 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1, 0.25, 1, 5 };

private:
    QMap<QByteArray, quint64> m_messages;
    QMap<QByteArray, quint64> m_refusals;
    std::array<quint64, kBatchBuckets.size()> m_batchBuckets {};
    quint64 m_batchCount = 0;
    double m_batchSum = 0;
};

} // namespace relay
