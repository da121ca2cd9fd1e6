#pragma once

#include "democommon.h"

#include <VelmoraInAppMessaging/inappmessage.h>

#include <QObject>
#include <QString>

#include <functional>

namespace shopdemo {

class ShopWindow;

/// Walks through the shop like a user would, without a display: visits every screen, waits for
/// its messages and their pictures, clicks and closes a few, and saves a PNG of each state.
class Tour : public QObject
{
    Q_OBJECT

public:
    Tour(ShopWindow *window, const QString &outputDir);

    /// Runs the whole tour; returns the exit status (0 once every screen was saved).
    int run();

private:
    void visit(const std::function<void()> &navigate);
    bool waitForMessages();
    void save(const QString &name);
    QWidget *visibleModal() const;
    QList<QWidget *> visibleBannerControls(const QString &objectName) const;
    void click(QWidget *widget);

    ShopWindow *m_window;
    QString m_outputDir;
    democommon::MessageTally m_tally;
    int m_failures = 0;
};

} // namespace shopdemo
