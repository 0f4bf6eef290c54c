#include "runfor.h"

#include "interruption.h"

#include <QEventLoop>
#include <QString>
#include <QTimer>
#include <string>

CLI::Validator runTime()
{
    const auto check = [](const std::string &text) {
        bool isNumber = false;
        const double seconds = QString::fromStdString(text).toDouble(&isNumber);
        const bool isRight = isNumber && seconds > 0 && seconds <= 1e6; // not for "nan"
        return isRight ? std::string()
                       : text + " is no time; expected seconds, more than 0 and at most 1000000";
    };
    return {check, ""};
}

void runFor(double seconds, const Interruption &interruption)
{
    QEventLoop loop;
    QObject::connect(&interruption, &Interruption::interrupted, &loop, &QEventLoop::quit);
    if (seconds > 0)
        QTimer::singleShot(static_cast<int>(seconds * 1000), Qt::PreciseTimer, &loop,
                           &QEventLoop::quit);
    loop.exec();
}
