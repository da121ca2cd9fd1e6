#include "httpserver/certificate.h"
#include "httpserver/httpserver.h"

#include <QBuffer>
#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using velmora::loopback::Certificate;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;

namespace {

QByteArray png(QSize size, QColor color)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(color);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

QJsonObject action(const QString &id, int priority, const QString &type, QJsonObject creative,
                   QJsonObject layout = {})
{
    QJsonObject action { { u"meta"_s,
                           QJsonObject { { u"scenario_id"_s, id },
                                         { u"updated_at"_s, u"2026-04-01T09:00:00Z"_s },
                                         { u"priority"_s, priority },
                                         { u"action_type"_s, type } } },
                         { u"creative"_s, creative } };
    if (!layout.isEmpty())
        action.insert(u"layout"_s, layout);
    return action;
}

QJsonObject image(const QUrl &url)
{
    return { { u"image"_s, QJsonObject { { u"url"_s, url.toString() } } } };
}

} // namespace

class tst_InspectRender : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void render_data();
    void render();

private:
    HttpServer m_server;
    QTemporaryDir m_dir;
};

void tst_InspectRender::initTestCase()
{
    QVERIFY(Certificate::shared());
    QVERIFY(m_server.listen(HttpServer::Mode::Https));
    m_server.setResponse(u"/red.png"_s, Response::withStatus(200, png({ 320, 160 }, Qt::red)));
    m_server.setResponse(u"/blue.png"_s, Response::withStatus(200, png({ 300, 100 }, Qt::blue)));
    m_server.setResponse(u"/missing.png"_s, Response::withStatus(404));
    QFile ca(m_dir.filePath(u"ca.pem"_s));
    QVERIFY(ca.open(QIODevice::WriteOnly));
    ca.write(Certificate::shared()->certificate().toPem());
}

void tst_InspectRender::render_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<qreal>("dpr");
    QTest::newRow("phone") << QSize(390, 844) << 1.0;
    QTest::newRow("desktop at 2x") << QSize(1280, 800) << 2.0;
}

void tst_InspectRender::render()
{
    QFETCH(QSize, size);
    QFETCH(qreal, dpr);

    const QJsonObject top { { u"location"_s, u"top"_s } };
    QJsonObject withTitle = image(m_server.url(u"/blue.png"_s));
    withTitle.insert(u"title"_s, QJsonObject { { u"text"_s, u"Hello"_s } });
    const QJsonArray actions {
        action(u"embedded"_s, 10, u"embedded_banner"_s, image(m_server.url(u"/red.png"_s)),
               { { u"component_id"_s, u"hero"_s } }),
        action(u"modal"_s, 90, u"popup_modal"_s, image(m_server.url(u"/red.png"_s))),
        action(u"second-modal"_s, 80, u"popup_modal"_s, image(m_server.url(u"/red.png"_s))),
        action(u"banner"_s, 70, u"popup_banner"_s, withTitle, top),
        action(u"under-banner"_s, 60, u"popup_banner"_s, withTitle, top),
        action(u"broken-image"_s, 50, u"popup_banner"_s, image(m_server.url(u"/missing.png"_s)),
               { { u"location"_s, u"bottom"_s } }),
        QJsonObject { { u"meta"_s,
                        QJsonObject { { u"scenario_id"_s, u"carousel"_s },
                                      { u"updated_at"_s, u"2026-04-01T09:00:00Z"_s },
                                      { u"action_type"_s, u"carousel"_s } } } },
    };
    QFile response(m_dir.filePath(u"response.json"_s));
    QVERIFY(response.open(QIODevice::WriteOnly));
    response.write(
        QJsonDocument(QJsonObject { { u"status"_s, u"ok"_s }, { u"actions"_s, actions } })
            .toJson());
    response.close();

    const QString out = m_dir.filePath(QString::fromLatin1(QTest::currentDataTag()));
    QProcess process;
    process.start(QStringLiteral(VELMORA_INSPECT_PATH),
                  { u"render"_s, response.fileName(), u"--size"_s,
                    u"%1x%2"_s.arg(size.width()).arg(size.height()), u"--dpr"_s,
                    QString::number(dpr), u"--out"_s, out, u"--ca-file"_s,
                    m_dir.filePath(u"ca.pem"_s) });
    // The images come from this process: keep its event loop running while the tool draws.
    QTRY_VERIFY_WITH_TIMEOUT(process.state() == QProcess::NotRunning, 120000);
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);

    const QByteArray lastLine = process.readAllStandardOutput().trimmed().split('\n').constLast();
    const QJsonObject result = QJsonDocument::fromJson(lastLine).object();
    QCOMPARE(result.keys(), QStringList({ u"rendered"_s, u"skipped"_s }));
    QStringList rendered;
    QHash<QString, QImage> images;
    for (const QJsonValue entry : result[u"rendered"_s].toArray()) {
        const QString id = entry[u"scenario_id"_s].toString();
        rendered << id + u':' + entry[u"type"_s].toString();
        images.insert(id, QImage(entry[u"png"_s].toString()));
        QCOMPARE(images[id].size(), size * dpr);
    }
    // In display order; one PNG each.
    QCOMPARE(rendered,
             QStringList({ u"modal:popup_modal"_s, u"banner:popup_banner"_s,
                           u"embedded:embedded_banner"_s }));
    QStringList skipped;
    for (const QJsonValue entry : result[u"skipped"_s].toArray()) {
        QVERIFY(!entry[u"why"_s].toString().isEmpty());
        skipped << entry[u"scenario_id"_s].toString();
    }
    QCOMPARE(
        skipped,
        QStringList({ u"second-modal"_s, u"under-banner"_s, u"broken-image"_s, u"carousel"_s }));

    // The modal's dim over the plain screen at a corner, its picture in the middle of the
    // card; the embedded banner's picture inset from the screen's edge.
    const QImage modal = images[u"modal"_s];
    const QColor dimmed = modal.pixelColor(2, 2);
    QVERIFY2(qAbs(dimmed.red() - qRound(0xF2 * 0.6)) <= 2, qPrintable(dimmed.name()));
    const QColor card = modal.pixelColor(modal.width() / 2, modal.height() / 2 - 20 * int(dpr));
    QVERIFY2(card.red() > 200 && card.green() < 50, qPrintable(card.name()));
    const QImage embedded = images[u"embedded"_s];
    QCOMPARE(embedded.pixelColor(8 * int(dpr), 20 * int(dpr)), QColor(0xF2, 0xF3, 0xF5));
    QCOMPARE(embedded.pixelColor(embedded.width() / 2, 20 * int(dpr)), QColor(Qt::red));
}

QTEST_GUILESS_MAIN(tst_InspectRender)
#include "tst_rendercommand.moc"
