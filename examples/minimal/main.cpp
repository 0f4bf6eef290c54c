// Loads a settings file and asks what the machine that it names has.

#include <machineregistry.h>

#include <QCoreApplication>
#include <QFileInfo>
#include <QTextStream>

namespace {

int fail(int exitCode, const QString &text)
{
    QTextStream(stderr) << "minimal: " << text << '\n';
    return exitCode;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.size() != 1)
        return fail(2, QStringLiteral("expected one argument, the settings file, and got %1\n"
                                      "usage: minimal SETTINGS_FILE")
                           .arg(arguments.size()));
    // Asked here because the library's own message does not name the file.
    const QFileInfo info(arguments.first());
    if (!info.exists())
        return fail(1, info.filePath() + QStringLiteral(": there is no such file"));
    if (!info.isFile() || !info.isReadable())
        return fail(1, info.filePath() + QStringLiteral(": not a file that can be read"));

    AbstractSettings::setSettingsFile(info.filePath()); // ends the process when it is no JSON
    const AbstractSettings file;
    const QString model = file.stringSetting(MachineRegistry::s_modelKey);
    const int subtype =
        file.intOptionalSetting(MachineRegistry::s_subtypeKey, HardwareSettings::NoSubtype);

    const std::unique_ptr<HardwareSettings> pMachine = MachineRegistry::create(model, subtype);
    if (!pMachine)
        return fail(1, QStringLiteral("%1: there is no machine \"%2\" with subtype %3")
                           .arg(info.filePath(), model)
                           .arg(subtype));
    const DisplaySettings display = pMachine->displaySettings();
    QTextStream(stdout) << model << ": display " << display.width() << " x " << display.height()
                        << ", USB stick at " << file.stringSetting(SettingsKeys::UsbPath) << '\n';
    return 0;
}
