#include "rotatinglogfile_p.h"

#include "logformatter.h"
#include "systempath.h"

#include <QDir>
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

size_t maximumSize(const RotatingLogFileConfiguration &configuration)
{
    return static_cast<size_t>(qMax(1.0, configuration.sizeMebibytes * 1024 * 1024));
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

/// spdlog tries five times, with pauses, to open what cannot be opened; so it is tried here first.
QString reasonAgainstOpening(const QString &path)
{
    const QFileInfo info(path);
    if (!QDir().mkpath(info.path()))
        return QStringLiteral("the folder cannot be made");
    QFile file(path);
    return file.open(QIODevice::Append) ? QString() : file.errorString();
}

} // namespace

RotatingLogFile::RotatingLogFile(QString fileName,
                                 const RotatingLogFileConfiguration &configuration)
    : m_fileName(std::move(fileName))
    , m_configuration(configuration)
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
    const std::lock_guard<std::recursive_mutex> lock(m_mutex);
    dropDeletedFile();
    if ((m_pSink || open()) && append(bytes))
        tellRecovery();
}

bool RotatingLogFile::open()
{
    m_path = SystemPath::path(SystemPath::Logs) + m_fileName;
    const QString reason = reasonAgainstOpening(m_path);
    if (!reason.isEmpty()) {
        tellFailure(reason);
        return false;
    }
    spdlog::file_event_handlers handlers;
    handlers.after_open = [this](const spdlog::filename_t &, std::FILE *pStream) {
        m_pStream = pStream;
    };
    handlers.before_close = [this](const spdlog::filename_t &, std::FILE *) {
        m_pStream = nullptr;
    };
    try {
        m_pSink = std::make_unique<spdlog::sinks::rotating_file_sink_st>(
            QFile::encodeName(m_path).toStdString(), maximumSize(m_configuration),
            static_cast<size_t>(qMax(0, m_configuration.olderFiles)),
            m_configuration.isRotatedWhenOpen, handlers);
    } catch (const std::exception &error) {
        tellFailure(QString::fromUtf8(error.what()));
        return false;
    }
    m_pSink->set_formatter(std::make_unique<spdlog::pattern_formatter>(
        s_pPattern, spdlog::pattern_time_type::utc, "\n"));
    return true;
}

bool RotatingLogFile::append(const QByteArray &line)
{
    if (!canRotate(line.size())) {
        tellFailure(QStringLiteral("the file is full and its folder cannot be written"));
        return false;
    }
    try {
        m_pSink->log(spdlog::details::log_msg(
            "", spdlog::level::info, {line.constData(), static_cast<size_t>(line.size())}));
        m_pSink->flush();
    } catch (const std::exception &error) {
        m_pSink.reset(); // after an error its stream may be gone
        tellFailure(QString::fromUtf8(error.what()));
        return false;
    }
    return true;
}

/// Lines would go on into a file that nobody can see any more.
void RotatingLogFile::dropDeletedFile()
{
    if (m_pStream == nullptr || !isDeleted(m_pStream))
        return;
    m_pSink.reset();
    LogFormatter(3, Log::Global) << "Log file" << m_path << "was deleted; a new one begins";
}

/// spdlog empties a full file that it cannot rename, and sleeps before that: neither is wanted.
bool RotatingLogFile::canRotate(qint64 length)
{
    const QFileInfo info(m_path);
    const auto fullSize = static_cast<qint64>(maximumSize(m_configuration));
    return info.size() + length + s_stampLength <= fullSize || QFileInfo(info.path()).isWritable();
}

void RotatingLogFile::tellFailure(const QString &reason)
{
    if (m_linesLost++ == 0)
        LogFormatter(3, Log::Global) << "Log file" << m_path << "cannot be written:" << reason
                                     << "- its lines are lost until it can";
}

void RotatingLogFile::tellRecovery()
{
    if (m_linesLost > 0)
        LogFormatter(1, Log::Global)
            << "Log file" << m_path << "is written again;" << m_linesLost << "lines were lost";
    m_linesLost = 0;
}
