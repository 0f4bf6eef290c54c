#ifndef RECORDINGINTERFACE_H
#define RECORDINGINTERFACE_H

#include "canbus/abstractcaninterface.h"
#include "canbus/vycanframe.h"

#include <QList>
#include <functional>

/// A bus that keeps what is written to it, and says no when told to. Frames of boards come through
/// onFrameReceived().
class RecordingInterface : public AbstractCanInterface
{
    Q_OBJECT

public:
    explicit RecordingInterface(bool isSimulated = false, QObject *pParent = nullptr)
        : AbstractCanInterface(pParent, isSimulated)
    {
    }

    bool openInterface(const QString &name) override
    {
        setInterfaceName(name);
        m_isOpen = true;
        return true;
    }
    bool closeInterface() override
    {
        m_isOpen = false;
        return true;
    }
    bool isOpen() const override { return m_isOpen; }
    using AbstractCanInterface::writeToCan;
    bool writeToCan(const CanFrame &frame) override
    {
        if (m_isRefusing)
            return false;
        m_written.append(frame);
        if (m_onWrite)
            m_onWrite(frame);
        return true;
    }

    const QList<CanFrame> &written() const { return m_written; }
    void clear() { m_written.clear(); }
    void setOpen(bool isOpen) { m_isOpen = isOpen; }
    void setRefusing(bool isRefusing) { m_isRefusing = isRefusing; }
    /// Called inside each write.
    void setOnWrite(const std::function<void(const CanFrame &)> &onWrite) { m_onWrite = onWrite; }

private:
    QList<CanFrame> m_written;
    bool m_isOpen = true;
    bool m_isRefusing = false;
    std::function<void(const CanFrame &)> m_onWrite;
};

#endif // RECORDINGINTERFACE_H
