#include "command.h"

#include <QCoreApplication>
#include <QFile>

#include <cstdio>

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
    // Headless on purpose: decoding, images and the network need no window system.
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"velmora-inspect"_s);

    QStringList args = QCoreApplication::arguments().mid(1);
    const QString name = args.isEmpty() ? QString() : args.takeFirst();
    for (const Command &command : commands()) {
        if (command.name == name)
            return command.run(args);
    }
    printErr(u"usage: velmora-inspect <command> [arguments]"_s);
    for (const Command &command : commands())
        printErr(u"  velmora-inspect "_s + command.usage);
    return name.isEmpty() || name == u"--help" ? (name.isEmpty() ? Usage : Success) : Usage;
}
