#ifndef OPTIONS_H
#define OPTIONS_H

#include <QHostAddress>
#include <QString>
#include <optional>

/// What the command line, or a file that it names, asks for.
struct Options
{
    QHostAddress address{QHostAddress::LocalHost};
    quint16 portBase = 4000; ///< payment; CAN and control are the next ones. 0: three free ones
    bool isPortsPrinted = false;
    QString logFile; ///< empty for none
    bool isSimulated = false;
    QString consolePath;   ///< empty for the default one
    QString canPlugin;     ///< of Qt SerialBus; empty for none
    QString canInterface;  ///< as the plugin calls it
    QString paymentDevice; ///< empty for none
};

/// Nothing when the program is to end at once, with `exitCode`: help has been printed, or what was
/// wrong and what was expected.
std::optional<Options> parseOptions(int count, const char *const *pArguments, int *pExitCode);

#endif // OPTIONS_H
