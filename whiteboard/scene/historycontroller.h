#pragma once

#include <QObject>

// Kept empty: hosts are given the name; the undo stack lives in the scene.
class HistoryController : public QObject
{
    Q_OBJECT

public:
    explicit HistoryController(QObject* parent = nullptr);
};
