#include "Channels.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <zmq.h>

#include <cerrno>
#include <system_error>

namespace {

void requireSystem(const char *call, bool succeeded) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), call);
    }
}

void requireZeroMq(const char *call, bool succeeded) {
    if (!succeeded) {
        throw std::runtime_error(std::string(call) + ": " + zmq_strerror(zmq_errno()));
    }
}

std::string nextName(const char *prefix) {
    static int count = 0;
    return prefix + std::to_string(getpid()) + "-" + std::to_string(++count);
}

/// One for the process: its threads serve networks alone, and wait.
void *zeroMqContext() {
    struct Context {
        void *context = zmq_ctx_new();
        Context() = default;
        Context(const Context &) = delete;
        Context &operator=(const Context &) = delete;
        ~Context() { zmq_ctx_term(context); }
    };
    static const Context made;
    return made.context;
}

void *openZeroMq(int type) {
    void *socket = zmq_socket(zeroMqContext(), type);
    requireZeroMq("zmq_socket", socket != nullptr);
    return socket;
}

} // namespace

// Queues

speed::QueueChannel::QueueChannel(SListenerCallback &callback) : m_callback(callback) {
    mq_attr attributes{};
    attributes.mq_maxmsg = 10;
    attributes.mq_msgsize = sizeof(SEventDataMessage);
    const std::string name = nextName("/speed-");
    m_queue = mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600, &attributes);
    requireSystem("mq_open", m_queue != -1);
    mq_unlink(name.c_str());
}

speed::QueueChannel::~QueueChannel() {
    mq_close(m_queue);
}

// Sockets

speed::SocketChannel::SocketChannel(SListenerCallback &callback) : m_callback(callback) {
    requireSystem("socketpair", socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, m_sockets) == 0);
}

speed::SocketChannel::~SocketChannel() {
    close(m_sockets[0]);
    close(m_sockets[1]);
}

void speed::SocketChannel::send(std::uint32_t event) {
    const SEventDataMessage message = makeMessage(event, nullptr, 0);
    ::send(m_sockets[0], &message, sizeof message, 0);
}

void speed::SocketChannel::receive() {
    SEventDataMessage message;
    recv(m_sockets[1], &message, sizeof message, 0);
    callBack(m_callback, message);
}

// ZeroMQ

speed::ZeroMqChannel::ZeroMqChannel(SListenerCallback &callback)
    : m_callback(callback), m_sender(openZeroMq(ZMQ_PAIR)), m_receiver(openZeroMq(ZMQ_PAIR)) {
    // Ten messages between them, as the queues hold: nobody is to run further ahead than another.
    constexpr int half = 5;
    for (void *socket : {m_sender, m_receiver}) {
        requireZeroMq("zmq_setsockopt", zmq_setsockopt(socket, ZMQ_SNDHWM, &half, sizeof half) == 0 &&
                                            zmq_setsockopt(socket, ZMQ_RCVHWM, &half, sizeof half) == 0);
    }
    const std::string address = nextName("inproc://speed-");
    requireZeroMq("zmq_bind", zmq_bind(m_sender, address.c_str()) == 0);
    requireZeroMq("zmq_connect", zmq_connect(m_receiver, address.c_str()) == 0);
}

speed::ZeroMqChannel::~ZeroMqChannel() {
    zmq_close(m_receiver);
    zmq_close(m_sender);
}

void speed::ZeroMqChannel::send(std::uint32_t event) {
    const SEventDataMessage message = makeMessage(event, nullptr, 0);
    zmq_send(m_sender, &message, sizeof message, 0);
}

void speed::ZeroMqChannel::receive() {
    SEventDataMessage message;
    zmq_recv(m_receiver, &message, sizeof message, 0);
    callBack(m_callback, message);
}

void speed::ZeroMqChannel::sendCopy(std::uint32_t event, const void *data, std::uint32_t size) {
    const SEventDataMessage head = makeMessage(event, nullptr, 0);
    zmq_msg_t message;
    zmq_msg_init_size(&message, sizeof head + size);
    auto *bytes = static_cast<char *>(zmq_msg_data(&message));
    std::memcpy(bytes, &head, sizeof head);
    std::memcpy(bytes + sizeof head, data, size);
    zmq_msg_send(&message, m_sender, 0);
}

void speed::ZeroMqChannel::receiveCopy() {
    zmq_msg_t message;
    zmq_msg_init(&message);
    zmq_msg_recv(&message, m_receiver, 0);
    auto *bytes = static_cast<char *>(zmq_msg_data(&message));
    SEventDataMessage head;
    std::memcpy(&head, bytes, sizeof head);
    head.pData = bytes + sizeof head;
    callBack(m_callback, head);
    zmq_msg_close(&message);
}

speed::ZeroMqPublisher::ZeroMqPublisher(std::uint32_t /*noOfEvents*/, std::uint32_t /*noOfListeners*/)
    : m_address(nextName("inproc://speed-")), m_socket(openZeroMq(ZMQ_PUB)) {
    requireZeroMq("zmq_bind", zmq_bind(m_socket, m_address.c_str()) == 0);
}

speed::ZeroMqPublisher::~ZeroMqPublisher() {
    for (const Channel &channel : m_channels) {
        zmq_close(channel.m_socket);
    }
    zmq_close(m_socket);
}

speed::ZeroMqPublisher::Channel &speed::ZeroMqPublisher::add(SListenerCallback &callback,
                                                             const std::vector<std::uint32_t> & /*filter*/) {
    Channel &channel = m_channels.emplace_back();
    channel.m_callback = &callback;
    channel.m_socket = openZeroMq(ZMQ_SUB);
    requireZeroMq("zmq_connect", zmq_connect(channel.m_socket, m_address.c_str()) == 0);
    requireZeroMq("zmq_setsockopt", zmq_setsockopt(channel.m_socket, ZMQ_SUBSCRIBE, "", 0) == 0);
    return channel;
}

void speed::ZeroMqPublisher::sendToAll(std::uint32_t event) {
    const SEventDataMessage message = makeMessage(event, nullptr, 0);
    zmq_send(m_socket, &message, sizeof message, 0);
}

void speed::ZeroMqPublisher::Channel::receive() {
    SEventDataMessage message;
    zmq_recv(m_socket, &message, sizeof message, 0);
    callBack(*m_callback, message);
}
