// "fetch" and "react": headless runs of the real message service, HTTP client and identity
// store, with a coordinator that prints instead of drawing.
#include "actionjson.h"
#include "command.h"
#include "config/sdkconfiguration.h"
#include "config/useridentityrepository.h"
#include "presentation/embeddedbannerstore.h"
#include "presentation/messagedisplaycoordinator.h"
#include "presentation/popupbannerpresentertype.h"
#include "presentation/popupbannerstore.h"
#include "presentation/popupmodalpresentertype.h"
#include "service/displaycoordinatortype.h"
#include "service/messageservice.h"
#include <VelmoraInAppMessaging/customparameterbuilder.h>
#include <VelmoraInAppMessaging/popupbanneraction.h>
#include <VelmoraInAppMessaging/velmorainappmessagingdelegate.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QSet>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace velmora::inspect {

namespace {

// The library's own coordinator, with presenters that print what they would show instead of
// drawing it, so classification, unsupported-type errors and per-position choice are the real
// ones.
class PrintingModalPresenter final : public PopupModalPresenterType
{
public:
    explicit PrintingModalPresenter(QSet<QString> *shown)
        : m_shown(shown)
    { }
    void present(const QString &, const QString &scenarioId, const PopupModalAction &,
                 ReactionHandler) override
    {
        m_shown->insert(u"popup_modal/"_s + scenarioId);
        printOut(u"modal: "_s + scenarioId);
    }
    void setOnClicked(MessageHandler) override { }
    void setOnDismissed(MessageHandler) override { }
    void setOnError(MessageErrorHandler) override { }

private:
    QSet<QString> *m_shown;
};

class PrintingBannerPresenter final : public PopupBannerPresenterType
{
public:
    explicit PrintingBannerPresenter(QSet<QString> *shown)
        : m_shown(shown)
    { }
    void present(const PopupBannerRequest &request) override
    {
        m_shown->insert(u"popup_banner/"_s + request.scenarioId);
        printOut(u"banner: "_s + request.scenarioId + u" at "_s
                 + rawValue(request.content.position));
    }
    void dismissAll() override { }
    void setOnClicked(MessageHandler) override { }
    void setOnDismissed(MessageHandler) override { }
    void setOnError(MessageErrorHandler) override { }

private:
    QSet<QString> *m_shown;
};

class PrintingCoordinator final : public DisplayCoordinatorType
{
public:
    PrintingCoordinator()
        : m_coordinator(std::make_unique<PrintingModalPresenter>(&m_shown),
                        std::make_unique<PrintingBannerPresenter>(&m_shown), &m_embedded, &m_popups)
    { }

    VelmoraInAppMessagingDelegate *delegate() const override { return m_coordinator.delegate(); }
    void setDelegate(VelmoraInAppMessagingDelegate *delegate) override
    {
        m_coordinator.setDelegate(delegate);
    }
    ReactionHandler reactionHandler() const override { return m_coordinator.reactionHandler(); }
    void setReactionHandler(ReactionHandler handler) override
    {
        m_coordinator.setReactionHandler(std::move(handler));
    }
    void startNewScreen(const QString &screenName, QObject *owner) override
    {
        printOut(u"screen: "_s + screenName);
        m_coordinator.startNewScreen(screenName, owner);
    }
    void finishLoading() override { m_coordinator.finishLoading(); }
    void displayMessage(const QList<InAppMessageAction> &actions, const QString &screenName,
                        QObject *target, const VerticalAnchor &top,
                        const VerticalAnchor &bottom) override
    {
        m_coordinator.displayMessage(actions, screenName, target, top, bottom);
        collect(actions);
    }
    void displayMessageForQuick(const QList<InAppMessageAction> &actions,
                                const QString &screenName) override
    {
        displayMessage(actions, screenName, nullptr, {}, {});
    }

    /// What reached a presenter or the embedded slots, in display order.
    QList<InAppMessageAction> displayed;

private:
    void collect(const QList<InAppMessageAction> &actions)
    {
        for (const auto &[componentId, data] : m_embedded.embeddedBanners()) {
            m_shown.insert(u"embedded_banner/"_s + data.scenarioId);
            printOut(u"embedded: "_s + data.scenarioId + u" in "_s + componentId);
        }
        for (const InAppMessageAction &action : actions) {
            if (m_shown.contains(action.contents.rawType() + u'/' + action.meta.scenarioId))
                displayed.append(action);
        }
    }

    QSet<QString> m_shown;
    EmbeddedBannerStore m_embedded;
    PopupBannerStore m_popups;
    MessageDisplayCoordinator m_coordinator;
};

class CollectingDelegate final : public VelmoraInAppMessagingDelegate
{
public:
    void messageError(const std::optional<InAppMessage> &, const VelmoraError &error) override
    {
        errors.append(error.description());
        printOut(u"error: "_s + error.description());
    }
    QStringList errors;
};

std::optional<CustomParameterEntry> parseParam(const QString &text, QString *error)
{
    const qsizetype equals = text.indexOf(u'=');
    const qsizetype colon = text.indexOf(u':', equals + 1);
    if (equals <= 0 || colon < 0) {
        *error = u"expected KEY=TYPE:VALUE, got \""_s + text + u'"';
        return std::nullopt;
    }
    const QString key = text.left(equals);
    const QString type = text.mid(equals + 1, colon - equals - 1);
    const QString value = text.mid(colon + 1);
    const bool isArray = type.endsWith(u"[]"_s);
    const QString base = isArray ? type.chopped(2) : type;
    const QStringList items
        = isArray ? (value.isEmpty() ? QStringList() : value.split(u',')) : QStringList { value };

    QStringList strings;
    QList<qint64> integers;
    QList<double> doubles;
    QList<bool> bools;
    for (const QString &item : items) {
        bool ok = true;
        if (base == u"string") {
            strings.append(item);
        } else if (base == u"integer") {
            integers.append(item.trimmed().toLongLong(&ok));
        } else if (base == u"double") {
            doubles.append(item.trimmed().toDouble(&ok));
        } else if (base == u"bool") {
            const QString b = item.trimmed();
            ok = b == u"true" || b == u"false";
            bools.append(b == u"true");
        } else {
            *error = u"unknown type \""_s + type
                + u"\" (string, integer, double, bool, or one of them followed by [])"_s;
            return std::nullopt;
        }
        if (!ok) {
            *error = u"\""_s + item + u"\" is not a valid "_s + base;
            return std::nullopt;
        }
    }
    if (base == u"string")
        return isArray ? putStringArray(key, strings) : putString(key, strings.value(0));
    if (base == u"integer")
        return isArray ? putIntegerArray(key, integers) : putInteger(key, integers.value(0));
    if (base == u"double")
        return isArray ? putDoubleArray(key, doubles) : putDouble(key, doubles.value(0));
    return isArray ? putBooleanArray(key, bools) : putBoolean(key, bools.value(0));
}

// The parts both commands share: options, configuration, identity store and service.
struct ServiceRun
{
    QCommandLineParser parser;
    std::shared_ptr<SDKConfiguration> config;
    std::shared_ptr<UserIdentityRepository> repository;
    PrintingCoordinator coordinator;
    CollectingDelegate delegate;
    std::unique_ptr<MessageService> service;
    QTemporaryDir scratch;

    ServiceRun()
    {
        parser.addOptions({
            { u"api-host"_s, u"The API host, as passed to setup()."_s, u"URL"_s },
            { u"api-key"_s, u"The API key."_s, u"KEY"_s },
            { u"tenant"_s, u"The tenant id."_s, u"TENANT"_s },
            { u"screen"_s, u"The screen name."_s, u"NAME"_s },
            { u"customer-id"_s, u"The host's customer id."_s, u"ID"_s },
            { u"strict-login"_s, u"Set the strict-login flag."_s },
            { u"state"_s, u"Folder for the preference store (keeps the visitor id across runs)."_s,
              u"DIR"_s },
            { u"ca-file"_s, u"Also trust the CA certificates in this PEM file."_s, u"FILE"_s },
            { u"verbose"_s, u"Show the library's debug diagnostics."_s },
        });
    }

    // Returns an exit status when the arguments are unusable.
    std::optional<int> parse(const QStringList &args, const QStringList &required)
    {
        if (!parser.parse(QStringList { u"velmora-inspect"_s } + args)) {
            printErr(parser.errorText());
            return Usage;
        }
        for (const QString &name : required) {
            if (!parser.isSet(name)) {
                printErr(u"missing --"_s + name);
                return Usage;
            }
        }
        if (parser.isSet(u"verbose"_s))
            QLoggingCategory::setFilterRules(u"velmora.*.debug=true"_s);
        if (parser.isSet(u"ca-file"_s)) {
            const auto certificates = QSslCertificate::fromPath(parser.value(u"ca-file"_s));
            if (certificates.isEmpty()) {
                printErr(u"no certificate in "_s + parser.value(u"ca-file"_s));
                return Unreadable;
            }
            QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
            ssl.addCaCertificates(certificates);
            QSslConfiguration::setDefaultConfiguration(ssl);
        }

        const QString stateDir
            = parser.isSet(u"state"_s) ? parser.value(u"state"_s) : scratch.path();
        if (!QDir().mkpath(stateDir)) {
            printErr(u"cannot create "_s + stateDir);
            return Unreadable;
        }
        repository = std::make_shared<UserIdentityRepository>(SDKUserDefaults(
            std::make_shared<SettingsUserDefaults>(QDir(stateDir).filePath(u"preferences.ini"_s))));
        config = std::make_shared<SDKConfiguration>();
        config->setup(parser.value(u"api-key"_s), parser.value(u"tenant"_s),
                      parser.value(u"api-host"_s));
        if (parser.isSet(u"customer-id"_s))
            config->customerId = parser.value(u"customer-id"_s);
        config->isStrictLogin = parser.isSet(u"strict-login"_s);
        service = std::make_unique<MessageService>(config, repository, &coordinator);
        service->setDelegate(&delegate);
        return std::nullopt;
    }
};

int runFetch(const QStringList &args)
{
    ServiceRun run;
    run.parser.addOption({ u"param"_s,
                           u"A custom parameter, KEY=TYPE:VALUE; TYPE is string, integer, "_s
                           u"double, bool, or one of them with [] (comma-separated)."_s,
                           u"PARAM"_s });
    if (const auto status
        = run.parse(args, { u"api-host"_s, u"api-key"_s, u"tenant"_s, u"screen"_s }))
        return *status;

    QList<CustomParameterEntry> entries;
    for (const QString &text : run.parser.values(u"param"_s)) {
        QString error;
        const auto entry = parseParam(text, &error);
        if (!entry) {
            printErr(u"--param: "_s + error);
            return Usage;
        }
        entries.append(*entry);
    }

    const QString screen = run.parser.value(u"screen"_s);
    run.service->noteScreenStart();
    run.coordinator.startNewScreen(screen, nullptr);
    bool finished = false;
    run.service->fetchMessagesForQuick(screen, CustomParameterBuilder::buildBlock(entries), [&] {
        finished = true;
        QCoreApplication::exit(0);
    });
    if (!finished)
        QCoreApplication::exec();

    QJsonArray errors;
    for (const QString &error : std::as_const(run.delegate.errors))
        errors.append(error);
    const QJsonObject result { { u"displayed"_s, actionsToJson(run.coordinator.displayed) },
                               { u"errors"_s, errors } };
    printOut(QString::fromUtf8(QJsonDocument(result).toJson(QJsonDocument::Compact)));
    return run.delegate.errors.isEmpty() ? Success : Failed;
}

int runReact(const QStringList &args)
{
    ServiceRun run;
    run.parser.addOptions({ { u"scenario"_s, u"The scenario id reacted to."_s, u"ID"_s },
                            { u"type"_s, u"open, click or close."_s, u"TYPE"_s } });
    if (const auto status = run.parse(
            args,
            { u"api-host"_s, u"api-key"_s, u"tenant"_s, u"screen"_s, u"scenario"_s, u"type"_s }))
        return *status;

    const QString typeText = run.parser.value(u"type"_s);
    std::optional<EventsReactionType> type;
    for (auto candidate :
         { EventsReactionType::Open, EventsReactionType::Click, EventsReactionType::Close }) {
        if (rawValue(candidate) == typeText)
            type = candidate;
    }
    if (!type) {
        printErr(u"--type must be open, click or close, not \""_s + typeText + u'"');
        return Usage;
    }
    if (!run.config->isConfigured()) {
        printErr(u"not configured: check --api-host, --api-key and --tenant"_s);
        return Failed;
    }

    // Show the waits between attempts; the retry policy itself is the library's.
    const Sleeper sleeper = defaultSleeper();
    run.service->setSleeper(
        [sleeper](std::chrono::milliseconds duration, std::function<void()> wake) {
            printOut(u"retrying in "_s + QString::number(duration.count()) + u" ms"_s);
            return sleeper(duration, std::move(wake));
        });
    MessageService::ReactionOutcome outcome = MessageService::ReactionOutcome::GivenUp;
    QObject::connect(
        run.service.get(), &MessageService::reactionFinished, run.service.get(),
        [&](EventsReactionType, const QString &, MessageService::ReactionOutcome result) {
            outcome = result;
            QCoreApplication::exit(0);
        });
    run.service->sendReaction(*type, run.parser.value(u"screen"_s),
                              run.parser.value(u"scenario"_s));
    QCoreApplication::exec();

    switch (outcome) {
    case MessageService::ReactionOutcome::Delivered:
        printOut(u"delivered"_s);
        return Success;
    case MessageService::ReactionOutcome::GivenUp:
        printOut(u"given up"_s);
        return Failed;
    case MessageService::ReactionOutcome::Cancelled:
        printOut(u"cancelled: the background time expired"_s);
        return Failed;
    }
    return Failed;
}

const bool fetchRegistered = registerCommand(
    { u"fetch"_s,
      u"fetch --api-host URL --api-key K --tenant T --screen NAME [--customer-id ID] "_s
      u"[--strict-login] [--param KEY=TYPE:VALUE ...] [--state DIR] [--ca-file PEM]"_s,
      runFetch });
const bool reactRegistered = registerCommand(
    { u"react"_s,
      u"react --api-host URL --api-key K --tenant T --screen NAME --scenario ID "_s
      u"--type open|click|close [--customer-id ID] [--strict-login] [--state DIR]"_s,
      runReact });

} // namespace

} // namespace velmora::inspect
