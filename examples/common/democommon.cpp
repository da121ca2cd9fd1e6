#include "democommon.h"

#include <VelmoraInAppMessaging/velmorainappmessaging.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSslCertificate>
#include <QSslConfiguration>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace democommon {

void addOptions(QCommandLineParser &parser)
{
    parser.addHelpOption();
    parser.addOptions({
        { u"api-host"_s, u"The back end's API host, as velmora-devserver prints it."_s, u"HOST"_s },
        { u"api-key"_s, u"The API key."_s, u"KEY"_s, u"demo-key"_s },
        { u"tenant"_s, u"The tenant id."_s, u"TENANT"_s, u"demo-tenant"_s },
        { u"ca-file"_s, u"Also trust the CA certificates in this PEM file."_s, u"FILE"_s },
        { u"customer-id"_s, u"The signed-in customer, if any."_s, u"ID"_s },
        { u"tour"_s, u"Visit every screen offscreen, save a PNG of each into DIR, then quit."_s,
          u"DIR"_s },
    });
}

int connectLibrary(const QCommandLineParser &parser, const char *program)
{
    if (!parser.isSet(u"api-host"_s)) {
        std::fprintf(stderr, "%s: --api-host is required\n", program);
        return 64;
    }
    if (parser.isSet(u"ca-file"_s)) {
        const auto certificates = QSslCertificate::fromPath(parser.value(u"ca-file"_s));
        if (certificates.isEmpty()) {
            std::fprintf(stderr, "%s: no certificate in %s\n", program,
                         qPrintable(parser.value(u"ca-file"_s)));
            return 2;
        }
        // Before the library's first request, which takes the default configuration.
        QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
        ssl.addCaCertificates(certificates);
        QSslConfiguration::setDefaultConfiguration(ssl);
    }
    auto &messaging = velmora::VelmoraInAppMessaging::shared();
    messaging.setup(parser.value(u"api-key"_s), parser.value(u"tenant"_s),
                    parser.value(u"api-host"_s));
    if (parser.isSet(u"customer-id"_s))
        messaging.setCustomerId(parser.value(u"customer-id"_s));
    return 0;
}

MessageTally::MessageTally()
{
    using velmora::InAppMessage;
    connect(&velmora::VelmoraInAppMessaging::shared(),
            &velmora::VelmoraInAppMessaging::messageDetectedForDisplay, this,
            [this](const InAppMessage &message) {
                ++shown;
                switch (message.type()) {
                case InAppMessage::Type::PopupBanner:
                    ++popupBanners;
                    break;
                case InAppMessage::Type::EmbeddedBanner:
                    ++embeddedBanners;
                    break;
                case InAppMessage::Type::PopupModal:
                    ++modals;
                    break;
                default:
                    break;
                }
            });
}

} // namespace democommon
