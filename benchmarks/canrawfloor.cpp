#include "canexchange.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace {

constexpr std::size_t s_frameSize = 8;
constexpr std::size_t s_headerSize = 5;
constexpr std::uint32_t s_cpu = 0x4A8;
constexpr std::uint32_t s_board = 0x419;

struct RawFrame
{
    std::uint32_t id;
    std::uint8_t size;
    std::array<std::uint8_t, s_frameSize> data;
};

std::uint8_t checksum(const std::vector<std::uint8_t> &bytes)
{
    std::uint8_t sum = 0;
    for (const std::uint8_t byte : bytes)
        sum ^= byte;
    return sum;
}

class RawFloor : public CanExchange
{
public:
    explicit RawFloor(std::size_t payload)
        : m_payload(payload, 0x5A)
    {
    }

    void prepare(std::size_t /*messages*/) override {}
    void exchange() override
    {
        encode(0x2A, m_payload, s_cpu, s_board);
        if (decode())
            ++m_delivered;
        acknowledge(0x2A);
        if (decode())
            ++m_acknowledged;
    }
    std::size_t delivered() const override { return m_delivered; }
    std::size_t acknowledged() const override { return m_acknowledged; }

private:
    void encode(unsigned command, const std::vector<std::uint8_t> &payload, std::uint32_t source,
                std::uint32_t destination)
    {
        m_stream.clear();
        for (const std::size_t byte : {std::size_t{2}, std::size_t{command} >> 8U,
                                       std::size_t{command}, payload.size() >> 8U, payload.size()})
            m_stream.push_back(static_cast<std::uint8_t>(byte));
        m_stream.insert(m_stream.end(), payload.cbegin(), payload.cend());
        m_stream.push_back(checksum(m_stream));
        split(source, destination);
    }

    void acknowledge(unsigned command)
    {
        m_stream = {2, 0, 1, static_cast<std::uint8_t>(command >> 8U),
                    static_cast<std::uint8_t>(command)};
        m_stream.push_back(checksum(m_stream));
        split(s_board, s_cpu);
    }

    void split(std::uint32_t source, std::uint32_t destination)
    {
        m_frames.clear();
        for (std::size_t at = 0; at < m_stream.size(); at += s_frameSize) {
            const std::size_t size = std::min(s_frameSize, m_stream.size() - at);
            RawFrame frame{destination | source << 11U |
                               static_cast<std::uint32_t>(m_frames.size()) << 22U,
                           static_cast<std::uint8_t>(size),
                           {}};
            std::copy_n(m_stream.cbegin() + static_cast<std::ptrdiff_t>(at), size,
                        frame.data.begin());
            m_frames.push_back(frame);
        }
    }

    bool decode()
    {
        m_received.clear();
        std::uint32_t index = 0;
        for (const RawFrame &frame : m_frames) {
            if (frame.id >> 22U != index++)
                return false;
            m_received.insert(m_received.end(), frame.data.cbegin(),
                              frame.data.cbegin() + frame.size);
        }
        return m_received.size() > s_headerSize && m_received[0] == 2 && checksum(m_received) == 0;
    }

    std::vector<std::uint8_t> m_payload;
    std::vector<std::uint8_t> m_stream;
    std::vector<std::uint8_t> m_received;
    std::vector<RawFrame> m_frames;
    std::size_t m_delivered = 0;
    std::size_t m_acknowledged = 0;
};

} // namespace

std::unique_ptr<CanExchange> makeRawFloor(std::size_t payload)
{
    return std::make_unique<RawFloor>(payload);
}
