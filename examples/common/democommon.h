#pragma once

#include <VelmoraInAppMessaging/inappmessage.h>

#include <QObject>

class QCommandLineParser;

namespace democommon {

/// --api-host, --api-key, --tenant, --ca-file, --customer-id and --tour DIR.
void addOptions(QCommandLineParser &parser);

/// Trusts --ca-file and sets the library up against --api-host. Returns 0, or the exit status
/// after saying on standard error why it cannot.
int connectLibrary(const QCommandLineParser &parser, const char *program);

/// The messages the library has found for display since it was made, by kind.
class MessageTally : public QObject
{
    Q_OBJECT

public:
    MessageTally();

    /// A new screen: its messages are counted from zero, the total goes on.
    void startScreen() { popupBanners = embeddedBanners = modals = 0; }

    int shown = 0;
    int popupBanners = 0;
    int embeddedBanners = 0;
    int modals = 0;
};

} // namespace democommon
