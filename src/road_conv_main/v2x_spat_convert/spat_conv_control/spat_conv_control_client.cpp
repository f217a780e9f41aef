#include "spat_conv_control_client.h"

#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "spat_conv_control_requests.h"

namespace {

constexpr size_t REQUEST_SIZE = 4096; // bytes of the longest request with its line feed
constexpr size_t PARTS = 64;          // lines that one system call sends

bool IsTemporary(int error) {
    return error == EAGAIN || error == EINTR;
}

} // namespace

v2xspatconv_controlClient::~v2xspatconv_controlClient() {
    close(m_descriptor);
}

void v2xspatconv_controlClient::HandleEvents(uint32_t revents) {
    if ((revents & (EPOLLHUP | EPOLLERR)) != 0) {
        m_isBroken = true;
        return;
    }
    if ((revents & EPOLLIN) != 0) {
        Receive();
    }
    if ((revents & EPOLLOUT) != 0) {
        m_isBlocked = false;
    }
}

void v2xspatconv_controlClient::Receive() {
    char bytes[REQUEST_SIZE];
    const ssize_t length = recv(m_descriptor, bytes, REQUEST_SIZE - m_input.size(), MSG_DONTWAIT);
    if (length > 0) {
        m_input.append(bytes, static_cast<size_t>(length));
    } else if (length == 0) {
        m_isInputEnded = true;
    } else if (!IsTemporary(errno)) {
        m_isBroken = true;
    }
}

std::optional<std::string> v2xspatconv_controlClient::TakeRequest() {
    if (m_isClosing || m_isBroken || m_output.HasReply()) {
        return std::nullopt;
    }
    const size_t end = m_input.find('\n');
    if (end == std::string::npos) {
        if (m_input.size() >= REQUEST_SIZE) {
            m_output.AddReply(
                std::make_shared<const std::string>(v2xspatconv_FormatError("the request has more than 4096 bytes")));
            CloseAfterSending();
            Send();
        }
        return std::nullopt;
    }
    std::string request = m_input.substr(0, end);
    m_input.erase(0, end + 1);
    return request;
}

void v2xspatconv_controlClient::Send() {
    while (!m_isBlocked && !m_isBroken && !m_output.IsEmpty()) {
        iovec parts[PARTS];
        const std::span<iovec> used = m_output.Peek(parts);
        msghdr message = {};
        message.msg_iov = used.data();
        message.msg_iovlen = used.size();
        const ssize_t length = sendmsg(m_descriptor, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (length >= 0) {
            m_output.Remove(static_cast<size_t>(length));
        } else if (IsTemporary(errno)) {
            m_isBlocked = errno == EAGAIN;
        } else {
            m_isBroken = true;
        }
    }
}

uint32_t v2xspatconv_controlClient::WantedEvents() const {
    const bool isReading = !m_isInputEnded && !m_isClosing && !m_output.HasReply() && m_input.size() < REQUEST_SIZE;
    return (isReading ? uint32_t{EPOLLIN} : 0) | (m_isBlocked ? uint32_t{EPOLLOUT} : 0);
}

bool v2xspatconv_controlClient::IsDone() const {
    const bool isLast = m_isClosing || (m_isInputEnded && m_kinds == 0);
    return m_isBroken || (isLast && m_output.IsEmpty());
}
