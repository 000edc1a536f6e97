// A host application like any other: it installs the library's Qt prompts, makes sessions and runs
// commands, all through the public headers.
#include "Examples/Console/CommandForm.h"
#include "Examples/Console/ConnectionForm.h"
#include "Examples/Console/ConsoleWindow.h"
#include "Examples/Console/Widgets.h"

#include <SSHSession/QtPlatform.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QIcon>
#include <QStandardPaths>
#include <QStyleFactory>

namespace {

const QCommandLineOption hostOption(QStringLiteral("host"), QStringLiteral("Server to fill in."),
                                    QStringLiteral("name"));
const QCommandLineOption portOption(QStringLiteral("port"), QStringLiteral("Port to fill in."),
                                    QStringLiteral("number"), QStringLiteral("22"));
const QCommandLineOption userOption(QStringLiteral("user"), QStringLiteral("User to fill in."),
                                    QStringLiteral("name"));
const QCommandLineOption keyOption(QStringLiteral("key-file"),
                                   QStringLiteral("Private key to fill in."),
                                   QStringLiteral("path"));
const QCommandLineOption commandOption(QStringLiteral("command"),
                                       QStringLiteral("Command to fill in."),
                                       QStringLiteral("line"));
const QCommandLineOption darkOption(QStringLiteral("dark"), QStringLiteral("Use a dark palette."));
const QCommandLineOption classicOption(QStringLiteral("classic"),
                                       QStringLiteral("Make sessions without options."));

} // namespace

int main(int argc, char **argv) {
    const QApplication application(argc, argv);
    SSHPlatform::installQt();
    QApplication::setApplicationName(QStringLiteral("sshsession-console"));
    QApplication::setApplicationDisplayName(QStringLiteral("SSH Console"));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/Console/SSHLockAndKeys.icns")));

    QCommandLineParser options;
    options.setApplicationDescription(QStringLiteral("Runs commands on a server over SSH."));
    options.addHelpOption();
    options.addOptions(
        {hostOption, portOption, userOption, keyOption, commandOption, darkOption, classicOption});
    options.process(application);
    if (options.isSet(darkOption))
        QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QApplication::setPalette(consolePalette(options.isSet(darkOption)));

    ConsoleWindow window(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation) +
                             QStringLiteral("/connections.ini"),
                         options.isSet(classicOption) ? SSHSessionOptions()
                                                      : SSHSessionOptions::recommended());
    if (options.isSet(hostOption))
        window.connectionForm().fill({.name = {},
                                      .host = options.value(hostOption),
                                      .port = options.value(portOption).toInt(),
                                      .user = options.value(userOption),
                                      .keyFile = options.value(keyOption)});
    window.commandForm().setCommand(options.value(commandOption));
    window.show();
    return QApplication::exec();
}
