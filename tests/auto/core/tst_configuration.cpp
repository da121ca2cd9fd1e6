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

class tst_Configuration : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void validHost_data();
    void validHost();
    void setupSequences();
    void controlCharactersRefused_data();
    void controlCharactersRefused();
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

    QTest::newRow("https with path") << u"https://api.example.com/vorpex/v1"_s << true;
    QTest::newRow("plain http") << u"http://127.0.0.1:8080"_s << true;
    QTest::newRow("upper-case scheme") << u"HTTP://api.example.com"_s << true;
    QTest::newRow("trailing slash and query") << u"https://api.example.com/v1/?a=b"_s << true;
    QTest::newRow("ftp") << u"ftp://api.example.com"_s << false;
    QTest::newRow("bare host") << u"api.example.com"_s << false;
    QTest::newRow("empty host") << u"https://"_s << false;
    QTest::newRow("empty host with path") << u"https:///vorpex/v1"_s << false;
    QTest::newRow("empty") << QString() << false;
    QTest::newRow("spaces") << u"https://api example.com"_s << false;
}

void tst_Configuration::validHost()
{
    QFETCH(QString, host);
    QFETCH(bool, valid);
    QCOMPARE(SDKConfiguration::isValidAPIHost(host), valid);
}

void tst_Configuration::setupSequences()
{
    QStringList warnings;
    const auto previous
        = detail::setWarningSink([&](const QString &line) { warnings.append(line); });

    SDKConfiguration config(DeviceInfo { u"12.0.0"_s, u"0.1.0"_s, u"test"_s });
    QVERIFY(!config.isConfigured());
    QCOMPARE(config.apiHost, SDKConfiguration::defaultAPIHost());
    QVERIFY(config.apiHost.startsWith(u"https://"_s) && config.apiHost.endsWith(u"/vorpex/v1"_s));

    config.setup(u"key1"_s, u"tenant1"_s, u"https://a.example/vorpex/v1"_s);
    QVERIFY(config.isConfigured());
    QVERIFY(warnings.isEmpty());

    // A rejected host keeps the earlier key, tenant and host, but refuses until fixed.
    config.setup(u"key2"_s, u"tenant2"_s, u"ftp://b.example"_s);
    QVERIFY(!config.isConfigured());
    QCOMPARE(config.invalidAPIHost, std::optional(u"ftp://b.example"_s));
    QCOMPARE(config.apiKey, std::optional(u"key1"_s));
    QCOMPARE(config.tenantId, std::optional(u"tenant1"_s));
    QCOMPARE(config.apiHost, u"https://a.example/vorpex/v1"_s);
    QCOMPARE(
        warnings,
        QStringList { u"[VelmoraInAppMessaging][WARNING] setup: apiHost is invalid; the SDK will "_s
                      u"not be configured. apiHost must be a valid http or https URL, but was "_s
                      u"\"ftp://b.example\"."_s });

    config.setup(u"key3"_s, u"tenant3"_s, u"http://c.example"_s);
    QVERIFY(config.isConfigured());
    QVERIFY(!config.invalidAPIHost);
    QCOMPARE(config.apiKey, std::optional(u"key3"_s));
    QCOMPARE(config.apiHost, u"http://c.example"_s);
    detail::setWarningSink(previous);
}

void tst_Configuration::controlCharactersRefused_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("tenant");
    QTest::addColumn<QString>("host");
    QTest::addColumn<bool>("refused");
    const QString host = u"https://b.example"_s;
    QTest::newRow("key read with its newline") << u"K\n"_s << u"t"_s << host << true;
    QTest::newRow("header injection") << u"K\r\nX-Injected: yes"_s << u"t"_s << host << true;
    QTest::newRow("tab in tenant") << u"K"_s << u"t\t1"_s << host << true;
    QTest::newRow("NUL in tenant") << u"K"_s << QString(u"t\0"_s) << host << true;
    QTest::newRow("DEL") << u"K\x7f"_s << u"t"_s << host << true;
    QTest::newRow("C1 next line") << u"K\u0085"_s << u"t"_s << host << true;
    // Refused as a whole before the host is looked at: the invalid host is not remembered.
    QTest::newRow("with an invalid host") << u"K\n"_s << u"t"_s << u"ftp://c.example"_s << true;
    QTest::newRow("non-ASCII is fine") << u"kľúč"_s << u"tenant €"_s << host << false;
}

void tst_Configuration::controlCharactersRefused()
{
    QFETCH(QString, key);
    QFETCH(QString, tenant);
    QFETCH(QString, host);
    QFETCH(bool, refused);
    QStringList warnings;
    const auto previous
        = detail::setWarningSink([&](const QString &line) { warnings.append(line); });
    SDKConfiguration config(DeviceInfo { u"12.0.0"_s, u"0.1.0"_s, u"test"_s });
    config.setup(u"key1"_s, u"tenant1"_s, u"https://a.example"_s);
    config.setup(key, tenant, host);
    detail::setWarningSink(previous);

    if (!refused) {
        QVERIFY(warnings.isEmpty());
        QVERIFY(config.isConfigured());
        QCOMPARE(config.apiKey, std::optional(key));
        return;
    }
    QCOMPARE(warnings,
             QStringList { u"[VelmoraInAppMessaging][WARNING] setup: apiKey and tenantId must "_s
                           u"not contain control characters; the SDK will not be configured."_s });
    QVERIFY(config.isConfigured());
    QVERIFY(!config.invalidAPIHost);
    QCOMPARE(config.apiKey, std::optional(u"key1"_s));
    QCOMPARE(config.tenantId, std::optional(u"tenant1"_s));
    QCOMPARE(config.apiHost, u"https://a.example"_s);
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
    QVERIFY(QRegularExpression(u"^\\d+\\.\\d+\\.\\d+$"_s).match(info.osVersion).hasMatch());
    QVERIFY(QRegularExpression(u"^\\d+\\.\\d+\\.\\d+$"_s).match(info.sdkVersion).hasMatch());
    QVERIFY(!info.deviceName.isEmpty());
    QVERIFY(!info.deviceName.contains(QChar(0)));
#ifdef Q_OS_LINUX
    QCOMPARE(DeviceInfo::osName(), u"Linux"_s);
#endif
}

void tst_Configuration::identityHeaders_data()
{
    QTest::addColumn<Headers>("first");
    QTest::addColumn<Headers>("second");
    QTest::addColumn<QString>("visitor"); // "<absent>" when nothing stored
    QTest::addColumn<QString>("customer");

    const QString absent = u"<absent>"_s;
    QTest::newRow("nothing") << Headers {} << Headers {} << absent << absent;
    QTest::newRow("mixed case names")
        << Headers { { u"X-Vorpex-Visitor-ID"_s, u"v1"_s }, { u"X-VORPEX-CUSTOMER-ID"_s, u"c1"_s } }
        << Headers {} << u"v1"_s << u"c1"_s;
    QTest::newRow("absent keeps the earlier value")
        << Headers { { u"x-vorpex-visitor-id"_s, u"v1"_s } }
        << Headers { { u"content-type"_s, u"application/json"_s } } << u"v1"_s << absent;
    QTest::newRow("later response replaces")
        << Headers { { u"x-vorpex-visitor-id"_s, u"v1"_s } }
        << Headers { { u"x-vorpex-visitor-id"_s, u"v2"_s } } << u"v2"_s << absent;
    QTest::newRow("empty value is stored as empty")
        << Headers { { u"x-vorpex-visitor-id"_s, u"v1"_s } }
        << Headers { { u"x-vorpex-visitor-id"_s, QString() } } << QString() << absent;
}

void tst_Configuration::identityHeaders()
{
    QFETCH(Headers, first);
    QFETCH(Headers, second);
    QFETCH(QString, visitor);
    QFETCH(QString, customer);

    const QString file = m_dir.filePath(QString::fromLatin1(QTest::currentDataTag()) + u".ini"_s);
    {
        UserIdentityRepository repository(
            SDKUserDefaults(std::make_shared<SettingsUserDefaults>(file)));
        repository.saveResponseHeaders(first);
        repository.saveResponseHeaders(second);
        QCOMPARE(repository.visitorId().value_or(u"<absent>"_s), visitor);
        QCOMPARE(repository.hashedCustomerId().value_or(u"<absent>"_s), customer);
    }
    // Kept across launches, under these keys.
    SettingsUserDefaults reopened(file);
    QCOMPARE(reopened.string(u"VelmoraInAppMessaging.vorpexVisitorId"_s).value_or(u"<absent>"_s),
             visitor);
    QCOMPARE(
        reopened.string(u"VelmoraInAppMessaging.vorpexHashedCustomerId"_s).value_or(u"<absent>"_s),
        customer);
}

QTEST_GUILESS_MAIN(tst_Configuration)
#include "tst_configuration.moc"
