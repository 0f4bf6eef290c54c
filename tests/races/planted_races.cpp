// usage: planted_races plain|slot. Ends with the sanitizer's exit code when the race is reported,
// with 0 when it is not.

#include <QCoreApplication>
#include <QObject>
#include <QThread>
#include <QTimer>
#include <cstring>

namespace {

/// Not atomic on purpose.
int g_counter = 0;

constexpr unsigned long s_headStart =
    100; ///< ms, so that the thread has counted, and is not ordered by chance

void count()
{
    for (int i = 0; i < 1000; ++i)
        g_counter = g_counter + 1;
}

/// Two threads that know nothing of each other write one variable.
void racePlainly()
{
    QThread *const pThread = QThread::create(count);
    pThread->start();
    QThread::msleep(s_headStart);
    count();
    pThread->wait();
    delete pThread;
}

/// A slot that runs in a worker's event loop writes what the main thread goes on writing after it
/// has asked for the slot: the posted event orders what came before it, not what comes after.
void raceInASlot()
{
    QThread thread;
    QObject worker;
    worker.moveToThread(&thread);
    thread.start();
    QMetaObject::invokeMethod(&worker, count, Qt::QueuedConnection);
    QThread::msleep(s_headStart);
    count();
    QMetaObject::invokeMethod(
        &worker, [&thread] { thread.quit(); }, Qt::QueuedConnection);
    thread.wait();
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    if (argc == 2 && std::strcmp(argv[1], "plain") == 0)
        racePlainly();
    else if (argc == 2 && std::strcmp(argv[1], "slot") == 0)
        raceInASlot();
    else
        return 2;
    return 0;
}
