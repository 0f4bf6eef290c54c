#ifndef REASSEMBLYTEST_H
#define REASSEMBLYTEST_H

#include "canbus/canprotocol_vy.h"
#include "canbus/protocoltest.h"

/// Messages of several frames on their way to the protocol.
class CanReassembly : public ProtocolFixture<CanProtocol_Vy>
{
protected:
    /// The frame of a board's message with 19 bytes of payload: 8, 8, 8 and 1 bytes.
    static CanFrame part(int index, int source = ProtocolAddress::Board, int command = 42)
    {
        return framesOf(source, ProtocolAddress::Own, command, countingBytes(19)).at(index);
    }

    void receivePart(int index, int source = ProtocolAddress::Board, int command = 42)
    {
        receive(part(index, source, command));
    }

    void receiveFrom(int firstIndex, int source = ProtocolAddress::Board, int command = 42)
    {
        for (int i = firstIndex; i < 4; ++i)
            receivePart(i, source, command);
    }

    int count() const { return m_pProtocol->incomingMessageCount(); }
};

#endif // REASSEMBLYTEST_H
