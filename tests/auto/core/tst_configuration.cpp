#include "common/logging.h"
#include "config/deviceinfo.h"
#include "config/sdkconfiguration.h"
#include "config/useridentityrepository.h"

#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace velmora;

using Headers = QHash<QString, QString>;

namespace {

// "configured" or "refused", then key, tenant, host and the remembered invalid host.
QString state(const SDKConfiguration &config)
{
    return QStringList { config.isConfigured() ? u"configured"_s : u"refused"_s,
                         config.apiKey.value_or(u"-"_s), config.tenantId.value_or(u"-"_s),
                         config.apiHost, config.invalidAPIHost.value_or(u"-"_s) }
        .join(u'|');
}

} // namespace

class tst_Configuration : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void validHost_data();
    void validHost();
    void setup_data();
    void setup();
    void threePartVersion_data();
    void threePartVersion();
    void deviceInfoCollected();
    void identityHeaders_data();
    void identityHeaders();

private:
    QTemporaryDir m_dir;
};

void tst_Configuration::validHost_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<bool>("valid");
    // Upper-case scheme, trailing slash and query are all fine.
    for (const QString &host :
         { u"https://api.example.com/vorpex/v1"_s, u"http://127.0.0.1:8080"_s,
           u"HTTP://api.example.com"_s, u"https://api.example.com/v1/?a=b"_s })
        QTest::addRow("%s", qPrintable(host)) << host << true;
    for (const QString &host : { u"ftp://api.example.com"_s, u"api.example.com"_s, u"https://"_s,
                                 u"https:///vorpex/v1"_s, QString(), u"https://api example.com"_s })
        QTest::addRow("invalid '%s'", qPrintable(host)) << host << false;
}

void tst_Configuration::validHost()
{
    QFETCH(QString, host);
    QFETCH(bool, valid);
    QCOMPARE(SDKConfiguration::isValidAPIHost(host), valid);
}

void tst_Configuration::setup_data()
{
    // What a second setup leaves after a valid first one.
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("tenant");
    QTest::addColumn<QString>("host");
    QTest::addColumn<QString>("state"); // as state() prints it
    QTest::addColumn<QString>("warning"); // "": none

    const auto row = [](const char *name, const QString &key, const QString &tenant,
                        const QString &host, const QString &state, const QString &warning = {}) {
        QTest::newRow(name) << key << tenant << host << state << warning;
    };
    row("http host", u"key2"_s, u"tenant2"_s, u"http://c.example"_s,
        u"configured|key2|tenant2|http://c.example|-"_s);
    row("non-ASCII is fine", u"kľúč"_s, u"tenant €"_s, u"https://b.example"_s,
        u"configured|kľúč|tenant €|https://b.example|-"_s);
    // A rejected host keeps the earlier key, tenant and host, but refuses until fixed.
    row("invalid host", u"key2"_s, u"tenant2"_s, u"ftp://b.example"_s,
        u"refused|key1|tenant1|https://a.example/vorpex/v1|ftp://b.example"_s,
        u"[VelmoraInAppMessaging][WARNING] setup: apiHost is invalid; the SDK will "_s
        u"not be configured. apiHost must be a valid http or https URL, but was "_s
        u"\"ftp://b.example\"."_s);

    const QString unchanged = u"configured|key1|tenant1|https://a.example/vorpex/v1|-"_s;
    const QString control = u"[VelmoraInAppMessaging][WARNING] setup: apiKey and tenantId must "_s
                            u"not contain control characters; the SDK will not be configured."_s;
    const QString host = u"https://b.example"_s;
    row("key read with its newline", u"K\n"_s, u"t"_s, host, unchanged, control);
    row("header injection", u"K\r\nX-Injected: yes"_s, u"t"_s, host, unchanged, control);
    row("tab in tenant", u"K"_s, u"t\t1"_s, host, unchanged, control);
    row("NUL in tenant", u"K"_s, QString(u"t\0"_s), host, unchanged, control);
    row("DEL", u"K\x7f"_s, u"t"_s, host, unchanged, control);
    row("C1 next line", u"K\u0085"_s, u"t"_s, host, unchanged, control);
    // Refused as a whole before the host is looked at: the invalid host is not remembered.
    row("with an invalid host", u"K\n"_s, u"t"_s, u"ftp://c.example"_s, unchanged, control);
}

void tst_Configuration::setup()
{
    QFETCH(QString, key);
    QFETCH(QString, tenant);
    QFETCH(QString, host);
    QFETCH(QString, state);
    QFETCH(QString, warning);
    QStringList warnings;
    const auto previous
        = detail::setWarningSink([&](const QString &line) { warnings.append(line); });

    SDKConfiguration config(DeviceInfo { u"12.0.0"_s, u"0.1.0"_s, u"test"_s });
    QCOMPARE(::state(config), u"refused|-|-|"_s + SDKConfiguration::defaultAPIHost() + u"|-"_s);
    QVERIFY(config.apiHost.startsWith(u"https://"_s) && config.apiHost.endsWith(u"/vorpex/v1"_s));
    config.setup(u"key1"_s, u"tenant1"_s, u"https://a.example/vorpex/v1"_s);
    config.setup(key, tenant, host);
    QCOMPARE(::state(config), state);
    // Whatever was refused, a later valid setup takes over completely.
    config.setup(u"key3"_s, u"tenant3"_s, u"http://c.example"_s);
    QCOMPARE(::state(config), u"configured|key3|tenant3|http://c.example|-"_s);
    detail::setWarningSink(previous);
    QCOMPARE(warnings, warning.isEmpty() ? QStringList() : QStringList { warning });
}

void tst_Configuration::threePartVersion_data()
{
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("expected");
    QTest::newRow("major only") << u"12"_s << u"12.0.0"_s;
    QTest::newRow("two") << u"17.4"_s << u"17.4.0"_s;
    QTest::newRow("three") << u"17.4.1"_s << u"17.4.1"_s;
    QTest::newRow("four") << u"10.0.19045.1"_s << u"10.0.19045"_s;
    QTest::newRow("rolling") << u"unknown"_s << u"0.0.0"_s;
    QTest::newRow("empty") << QString() << u"0.0.0"_s;
}

void tst_Configuration::threePartVersion()
{
    QFETCH(QString, input);
    QFETCH(QString, expected);
    QCOMPARE(DeviceInfo::threePartVersion(input), expected);
}

void tst_Configuration::deviceInfoCollected()
{
    const DeviceInfo info = DeviceInfo::collect();
    const QRegularExpression version(u"^\\d+\\.\\d+\\.\\d+$"_s);
    QVERIFY(version.match(info.osVersion).hasMatch() && version.match(info.sdkVersion).hasMatch());
    QVERIFY(!info.deviceName.isEmpty() && !info.deviceName.contains(QChar(0)));
#ifdef Q_OS_LINUX
    QCOMPARE(DeviceInfo::osName(), u"Linux"_s);
#endif
}

void tst_Configuration::identityHeaders_data()
{
    QTest::addColumn<Headers>("first");
    QTest::addColumn<Headers>("second");
    QTest::addColumn<QStringList>("stored"); // visitor, customer; "<absent>" when nothing stored

    const QString absent = u"<absent>"_s, visitor = u"x-vorpex-visitor-id"_s;
    QTest::newRow("nothing") << Headers {} << Headers {} << QStringList { absent, absent };
    QTest::newRow("mixed case names")
        << Headers { { u"X-Vorpex-Visitor-ID"_s, u"v1"_s }, { u"X-VORPEX-CUSTOMER-ID"_s, u"c1"_s } }
        << Headers {} << QStringList { u"v1"_s, u"c1"_s };
    QTest::newRow("absent keeps the earlier value")
        << Headers { { visitor, u"v1"_s } }
        << Headers { { u"content-type"_s, u"application/json"_s } }
        << QStringList { u"v1"_s, absent };
    QTest::newRow("later response replaces")
        << Headers { { visitor, u"v1"_s } } << Headers { { visitor, u"v2"_s } }
        << QStringList { u"v2"_s, absent };
    QTest::newRow("empty value is stored as empty")
        << Headers { { visitor, u"v1"_s } } << Headers { { visitor, QString() } }
        << QStringList { QString(), absent };
}

void tst_Configuration::identityHeaders()
{
    QFETCH(Headers, first);
    QFETCH(Headers, second);
    QFETCH(QStringList, stored);

    const QString absent = u"<absent>"_s;
    const QString file = m_dir.filePath(QString::fromLatin1(QTest::currentDataTag()) + u".ini"_s);
    {
        UserIdentityRepository repository(
            SDKUserDefaults(std::make_shared<SettingsUserDefaults>(file)));
        repository.saveResponseHeaders(first);
        repository.saveResponseHeaders(second);
        QCOMPARE((QStringList { repository.visitorId().value_or(absent),
                                repository.hashedCustomerId().value_or(absent) }),
                 stored);
    }
    // Kept across launches, under these keys.
    SettingsUserDefaults reopened(file);
    QCOMPARE(
        (QStringList {
            reopened.string(u"VelmoraInAppMessaging.vorpexVisitorId"_s).value_or(absent),
            reopened.string(u"VelmoraInAppMessaging.vorpexHashedCustomerId"_s).value_or(absent) }),
        stored);
}

QTEST_GUILESS_MAIN(tst_Configuration)
#include "tst_configuration.moc"
