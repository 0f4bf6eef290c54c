#include "runfor.h"

#include "interruption.h"

#include <QEventLoop>
#include <QTimer>

void runFor(double seconds)
{
    QEventLoop loop;
    Interruption interruption;
    QObject::connect(&interruption, &Interruption::interrupted, &loop, &QEventLoop::quit);
    if (seconds > 0)
        QTimer::singleShot(static_cast<int>(seconds * 1000), &loop, &QEventLoop::quit);
    loop.exec();
}
