#include "command.h"

#include <QCoreApplication>
#if VELMORA_WITH_WIDGETS
#include <QApplication>
#endif
#include <QFile>

#include <algorithm>
#include <cstdio>
#include <memory>

using namespace Qt::StringLiterals;

namespace velmora::inspect {

namespace {
QList<Command> &registry()
{
    static QList<Command> list;
    return list;
}

void printLine(FILE *stream, const QString &line)
{
    const QByteArray bytes = line.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}
} // namespace

bool registerCommand(Command command)
{
    registry().append(std::move(command));
    return true;
}

const QList<Command> &commands()
{
    return registry();
}

std::optional<int> readFileArgument(const QStringList &args, const QString &usage, QByteArray *data,
                                    qint64 maxBytes)
{
    if (args.size() != 1) {
        printErr(u"usage: velmora-inspect "_s + usage);
        return Usage;
    }
    QFile file(args.first());
    if (file.open(QIODevice::ReadOnly))
        *data = maxBytes < 0 ? file.readAll() : file.read(maxBytes);
    if (!file.isOpen() || file.error() != QFileDevice::NoError) {
        printErr(u"cannot read "_s + args.first() + u": "_s + file.errorString());
        return Unreadable;
    }
    return std::nullopt;
}

void printOut(const QString &line)
{
    printLine(stdout, line);
}

void printErr(const QString &line)
{
    printLine(stderr, line);
}

} // namespace velmora::inspect

int main(int argc, char *argv[])
{
    using namespace velmora::inspect;
    const QString name = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    const auto command = std::find_if(commands().begin(), commands().end(),
                                      [&](const Command &c) { return c.name == name; });
    // Headless on purpose: decoding, images and the network need no window system. Commands
    // that draw widgets get an application on the offscreen platform, display or not.
    std::unique_ptr<QCoreApplication> app;
#if VELMORA_WITH_WIDGETS
    if (command != commands().end() && command->widgets) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        app = std::make_unique<QApplication>(argc, argv);
    }
#endif
    if (!app)
        app = std::make_unique<QCoreApplication>(argc, argv);
    QCoreApplication::setApplicationName(u"velmora-inspect"_s);

    if (command != commands().end())
        return command->run(QCoreApplication::arguments().mid(2));
    printErr(u"usage: velmora-inspect <command> [arguments]"_s);
    for (const Command &entry : commands())
        printErr(u"  velmora-inspect "_s + entry.usage);
    return name.isEmpty() || name == u"--help" ? (name.isEmpty() ? Usage : Success) : Usage;
}
