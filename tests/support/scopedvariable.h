#ifndef SCOPEDVARIABLE_H
#define SCOPEDVARIABLE_H

#include <QByteArray>

/// An environment variable that has another value, or none, while this lives.
class ScopedVariable
{
public:
    /// Unsets it.
    explicit ScopedVariable(const QByteArray &name)
        : m_name(name)
        , m_wasSet(qEnvironmentVariableIsSet(name.constData()))
        , m_before(qgetenv(name.constData()))
    {
        qunsetenv(m_name.constData());
    }

    ScopedVariable(const QByteArray &name, const QByteArray &value)
        : ScopedVariable(name)
    {
        set(value);
    }

    ~ScopedVariable()
    {
        if (m_wasSet)
            set(m_before);
        else
            qunsetenv(m_name.constData());
    }
    Q_DISABLE_COPY_MOVE(ScopedVariable)

    void set(const QByteArray &value) const { qputenv(m_name.constData(), value); }

private:
    QByteArray m_name;
    bool m_wasSet;
    QByteArray m_before;
};

#endif // SCOPEDVARIABLE_H
