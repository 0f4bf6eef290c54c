#include "rotatinglogfile_p.h"

#include "logformatter.h"
#include "systempath.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <utility>

#ifdef Q_OS_UNIX
#    include <sys/stat.h>
#    include <unistd.h>
#endif

namespace {

constexpr auto s_pPattern = "%Y-%m-%dT%H:%M:%S.%eZ %v";
constexpr qint64 s_stampLength = 26; ///< bytes that the pattern and the line end add to a line

qint64 maximumSize(const RotatingLogFileConfiguration &configuration)
{
    return static_cast<qint64>(qMax(1.0, configuration.sizeMebibytes * 1024 * 1024));
}

bool isDeleted(std::FILE *pStream)
{
#ifdef Q_OS_UNIX
    struct stat status = {};
    return ::fstat(::fileno(pStream), &status) == 0 && status.st_nlink == 0;
#else
    Q_UNUSED(pStream) // an open file cannot be deleted there
    return false;
#endif
}

/// Opening a pipe would wait for its reader.
bool isPipe(const QString &path)
{
#ifdef Q_OS_UNIX
    struct stat status = {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 && S_ISFIFO(status.st_mode);
#else
    Q_UNUSED(path)
    return false;
#endif
}

/// Ends a line that a full disk or a power cut has left half written, so that the next one stands
/// on its own.
void endLastLine(QFile &file)
{
    char last = '\n';
    if (file.size() > 0 && file.seek(file.size() - 1) && file.getChar(&last) && last != '\n')
        file.write("\n");
}

/// Why the file cannot be opened; empty when it can. spdlog tries five times, with pauses, to open
/// what cannot be opened, so it is tried here first.
QString prepare(const QString &path)
{
    const QFileInfo info(path);
    if (!QDir().mkpath(info.path()))
        return QStringLiteral("the folder cannot be made");
    if (isPipe(path))
        return QStringLiteral("it is a pipe");
    const bool isDevice = info.exists() && !info.isFile();
    QFile file(path);
    if (!file.open(isDevice ? QIODevice::WriteOnly : QIODevice::ReadWrite))
        return file.errorString();
    if (!isDevice)
        endLastLine(file);
    return {};
}

} // namespace

RotatingLogFile::RotatingLogFile(QString fileName,
                                 const RotatingLogFileConfiguration &configuration)
    : m_fileName(std::move(fileName))
    , m_configuration(configuration)
    , m_isRotationDue(configuration.isRotatedWhenOpen)
{
}

RotatingLogFile::~RotatingLogFile() = default;

std::shared_ptr<RotatingLogFile>
RotatingLogFile::shared(const QString &fileName, const RotatingLogFileConfiguration &configuration)
{
    static std::mutex s_mutex;
    static auto *const pFiles = new QHash<QString, std::weak_ptr<RotatingLogFile>>;
    const std::lock_guard<std::mutex> lock(s_mutex);
    std::shared_ptr<RotatingLogFile> pFile = pFiles->value(fileName).lock();
    if (!pFile) {
        pFile = std::make_shared<RotatingLogFile>(fileName, configuration);
        pFiles->insert(fileName, pFile);
    }
    return pFile;
}

void RotatingLogFile::write(const QString &line)
{
    QByteArray bytes = line.toUtf8();
    if (bytes.endsWith('\n'))
        bytes.chop(1); // the pattern adds it again

    std::unique_lock<std::mutex> lock(m_mutex);
    dropDeletedFile();
    QString failure = m_pSink ? QString() : open();
    if (failure.isEmpty())
        failure = append(bytes);
    const bool isLost = !failure.isEmpty();
    const QString news = tellWhatChanged(failure);
    lock.unlock(); // whoever is told may write here, or wait for one who does
    if (!news.isEmpty())
        LogFormatter(isLost ? LogWarning : LogInformation, Log::Global) << "Log file" << news;
}

QString RotatingLogFile::open()
{
    m_path = SystemPath::path(SystemPath::Logs) + m_fileName;
    QString failure = prepare(m_path);
    if (!failure.isEmpty())
        return failure;
    spdlog::file_event_handlers handlers;
    handlers.after_open = [this](const spdlog::filename_t &, std::FILE *pStream) {
        m_pStream = pStream;
    };
    handlers.before_close = [this](const spdlog::filename_t &, std::FILE *) {
        m_pStream = nullptr;
    };
    try {
        m_pSink = std::make_unique<spdlog::sinks::rotating_file_sink_st>(
            QFile::encodeName(m_path).toStdString(),
            static_cast<size_t>(maximumSize(m_configuration)),
            static_cast<size_t>(qMax(0, m_configuration.olderFiles)),
            std::exchange(m_isRotationDue, false) && reasonAgainstRotating().isEmpty(), handlers);
    } catch (const std::exception &error) {
        return QString::fromUtf8(error.what());
    }
    m_pSink->set_formatter(std::make_unique<spdlog::pattern_formatter>(
        s_pPattern, spdlog::pattern_time_type::utc, "\n"));
    return {};
}

QString RotatingLogFile::append(const QByteArray &line)
{
    // spdlog empties a full file that it cannot rename, and sleeps before that: neither is wanted.
    QString reason = isFullWith(line.size()) ? reasonAgainstRotating() : QString();
    if (!reason.isEmpty())
        return reason;
    try {
        m_pSink->log(spdlog::details::log_msg(
            "", spdlog::level::info, {line.constData(), static_cast<size_t>(line.size())}));
        m_pSink->flush();
    } catch (const std::exception &error) {
        m_pSink.reset(); // after an error its stream may be gone
        return QString::fromUtf8(error.what());
    }
    return {};
}

bool RotatingLogFile::isFullWith(qint64 length) const
{
    return QFileInfo(m_path).size() + length + s_stampLength > maximumSize(m_configuration);
}

QString RotatingLogFile::reasonAgainstRotating() const
{
    const QFileInfo info(m_path);
    const QString base = info.path() + QLatin1Char('/') + info.completeBaseName();
    const QString ending = info.suffix().isEmpty() ? QString() : QLatin1Char('.') + info.suffix();
    for (int number = 1; number <= m_configuration.olderFiles; ++number) {
        if (QFileInfo(QStringLiteral("%1.%2%3").arg(base).arg(number).arg(ending)).isDir())
            return QStringLiteral("it is full, and a folder has the name of an older file");
    }
    if (!QFileInfo(info.path()).isWritable())
        return QStringLiteral("it is full, and its folder cannot be written");
    return {};
}

/// Lines would go on into a file that nobody can see any more.
void RotatingLogFile::dropDeletedFile()
{
    if (m_pStream == nullptr || !isDeleted(m_pStream))
        return;
    m_pSink.reset();
    m_wasDeleted = true;
}

/// What the log is to be told after a line; empty when nothing has changed.
QString RotatingLogFile::tellWhatChanged(const QString &failure)
{
    const bool isLost = !failure.isEmpty();
    const qint64 linesLost = std::exchange(m_linesLost, isLost ? m_linesLost + 1 : 0);
    const bool wasDeleted = !isLost && std::exchange(m_wasDeleted, false);
    if (isLost && linesLost == 0)
        return QStringLiteral("%1 cannot be written: %2; its lines are lost until it can")
            .arg(m_path, failure);
    if (!isLost && linesLost > 0)
        return QStringLiteral("%1 is written again; %2 lines were lost").arg(m_path).arg(linesLost);
    return wasDeleted ? QStringLiteral("%1 was deleted; a new one begins").arg(m_path) : QString();
}
