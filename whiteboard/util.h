#pragma once

#include <QString>

// Stand-in for the host's Util service: the few file helpers the module needs.
class Util
{
public:
    static Util& instance();

    // A file URL becomes its local path; a plain path is returned as it is.
    QString toLocalFile(const QString& pathOrUrl) const;
};
