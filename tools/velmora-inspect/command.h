#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace velmora::inspect {

/// One subcommand of velmora-inspect. `run` gets the arguments after the subcommand's name
/// and returns the exit status.
struct Command
{
    QString name;
    QString usage;
    std::function<int(const QStringList &args)> run;
    /// Runs in a QApplication on the offscreen platform instead of a headless core application.
    bool widgets = false;
};

/// Called from a static initialiser in each subcommand's file.
bool registerCommand(Command command);
const QList<Command> &commands();

/// Exit statuses shared by the subcommands.
enum ExitStatus { Success = 0, Failed = 1, Unreadable = 2, Usage = 64 };

/// Reads the single FILE argument of a subcommand, at most `maxBytes` of it. On failure prints
/// the usage or the reason on standard error and returns the exit status to use.
std::optional<int> readFileArgument(const QStringList &args, const QString &usage, QByteArray *data,
                                    qint64 maxBytes = -1);

/// Prints one line to standard output / standard error, flushed, so that it interleaves
/// correctly with the library's own warning lines.
void printOut(const QString &line);
void printErr(const QString &line);

} // namespace velmora::inspect
