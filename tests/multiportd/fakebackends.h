#ifndef FAKEBACKENDS_H
#define FAKEBACKENDS_H

#include "multiportd/abstractcanbackend.h"
#include "multiportd/abstractoutputsbackend.h"
#include "multiportd/abstractpaymentbackend.h"

#include <QList>
#include <QStringList>

/// Keeps what is sent; the test speaks for the other nodes.
class FakeCan : public AbstractCanBackend
{
public:
    bool open(QString * /*pError*/) override { return true; }
    void send(const CanFrame &frame) override { m_sent.append(frame); }

    void speak(quint32 id, const CanBytes &data)
    {
        CanFrame frame;
        frame.setId(id);
        frame.setData(data);
        Q_EMIT frameReceived(frame);
    }

    QList<CanFrame> m_sent;
};

class FakePayment : public AbstractPaymentBackend
{
public:
    bool open(QString * /*pError*/) override { return true; }
    quint8 setSerialLine(const multiportlink::SerialLine &line) override
    {
        m_lines.append(
            QStringLiteral("%1 %2 %3").arg(line.baudRate).arg(line.dataBits).arg(line.parity));
        return m_status;
    }
    void write(const QByteArray &bytes) override { m_written += bytes; }

    quint8 m_status = 0;
    QStringList m_lines;
    QByteArray m_written;
};

class FakeOutputs : public AbstractOutputsBackend
{
public:
    quint8 setOutput(quint8 output, bool isOn) override { return note("output", output, isOn); }
    quint8 setBlinking(quint8 output, bool isOn) override { return note("blink", output, isOn); }

    QStringList m_calls;

private:
    quint8 note(const char *pWhat, quint8 output, bool isOn)
    {
        m_calls.append(
            QStringLiteral("%1 %2 %3").arg(QLatin1String(pWhat)).arg(output).arg(isOn ? 1 : 0));
        return output == 255 ? 1 : 0; // there are 255
    }
};

#endif // FAKEBACKENDS_H
