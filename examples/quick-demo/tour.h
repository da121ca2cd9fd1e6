#pragma once

#include "democommon.h"

#include <QImage>
#include <QObject>
#include <QString>

#include <functional>

class QQuickItem;
class QQuickWindow;

namespace quickdemo {

/// Walks through the shop like a user would, without a display: visits every screen, waits for
/// its messages and their pictures, taps and closes a few, and saves a PNG of each state.
class Tour : public QObject
{
    Q_OBJECT

public:
    Tour(QQuickWindow *window, const QString &outputDir);

    /// Runs the whole tour; returns the exit status (0 once every state was saved).
    int run();

private:
    void visit(const std::function<void()> &navigate);
    void save(const QString &name);
    QQuickItem *find(QQuickItem *root, const QString &objectName) const;
    bool tap(QQuickWindow *window, const QString &objectName);

    QQuickWindow *m_window;
    QString m_outputDir;
    democommon::MessageTally m_tally;
    int m_failures = 0;
};

} // namespace quickdemo
