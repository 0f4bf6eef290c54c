// Loads a settings file and asks what the machine that it names has.

#include <machineregistry.h>

#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    QTextStream out(stdout);
    if (arguments.size() != 2) {
        out << "usage: minimal SETTINGS_FILE\n";
        return 2;
    }

    AbstractSettings::setSettingsFile(arguments.at(1)); // ends the process when the file is wrong
    const AbstractSettings file;
    const QString model = file.stringSetting(MachineRegistry::s_modelKey);
    const int subtype =
        file.intOptionalSetting(MachineRegistry::s_subtypeKey, HardwareSettings::NoSubtype);

    const std::unique_ptr<HardwareSettings> pMachine = MachineRegistry::create(model, subtype);
    if (!pMachine) {
        out << "There is no machine " << model << ' ' << subtype << '\n';
        return 1;
    }
    const DisplaySettings display = pMachine->displaySettings();
    out << model << ": display " << display.width() << " x " << display.height()
        << ", USB stick at " << file.stringSetting(SettingsKeys::UsbPath) << '\n';
    return 0;
}
