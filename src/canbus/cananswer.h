#ifndef CANANSWER_H
#define CANANSWER_H

#include "vyhardware1_export.h"

#include <QMetaType>
#include <QObject>

/// What came back for a message that was sent. A plain value.
class VYHARDWARE1_EXPORT CanAnswer
{
    Q_GADGET

public:
    enum AnswerType : int {
        AnswerNone = 0,         ///< no answer
        AnswerAck = 1,          ///< acknowledged, or sent where none acknowledges
        AnswerSendingError = 2, ///< could not be written
        AnswerAckNot = 3,       ///< refused by the board
        AnswerTimeout = 4,      ///< no answer, or no further frame, in time
    };
    Q_ENUM(AnswerType)

    CanAnswer() = default;
    CanAnswer(AnswerType type) // NOLINT(google-explicit-constructor): the fixed signature
        : m_type(type)
    {
    }

    AnswerType type() const { return m_type; }

private:
    AnswerType m_type = AnswerNone;
};
Q_DECLARE_METATYPE(CanAnswer)

#endif // CANANSWER_H
