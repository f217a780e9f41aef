// The simulator's topics of plain bytes.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace sim {

// One at a time in a process: the receive callback of the platform's library carries no context.
class DdsPort {
public:
    // Called on a thread of the library, for one topic one call at a time; the bytes are lent for the call.
    using Receive = std::function<void(std::span<const uint8_t> sample)>;

    struct Topic {
        std::string name;
        Receive receive; // empty for a topic to be published on
    };
    static constexpr size_t MAX_READ_TOPICS = 2;

    // Throws std::runtime_error that names the domain or the topic.
    DdsPort(int32_t domain, const std::vector<Topic>& topics);
    ~DdsPort();
    DdsPort(const DdsPort&) = delete;
    DdsPort& operator=(const DdsPort&) = delete;

    // Whether anyone reads the topic.
    bool HasReader(const std::string& topic) const;
    // Publishes the bytes, not empty; false when the library refuses them.
    bool Send(const std::string& topic, const std::string& bytes);
    // Nothing is called or sent any more.
    void Close();

private:
    void* m_handle;
};

} // namespace sim
