/// @file
/// The ways to carry an event to a callback that the tables compare, all in one shape: a transport makes channels; what
/// goes into a channel by send comes out by receive, which calls back. The message is the library's, whoever carries
/// it.
#pragma once

#include <mqueue.h>

#include <glib.h>

#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CEventTask.h"
#include "EventService.h"

namespace speed {

/// Each event has one listener, or as many as it was given.
class LibraryTransport {
public:
    class Channel {
    public:
        void send(std::uint32_t event) { CEventHandler_FireEvent(event); }
        void sendCopy(std::uint32_t event, const void *data, std::uint32_t size) {
            CEventHandler_FireEventWithCopiedData(event, data, size);
        }
        void receive() { CEventHandler_PumpEvent(m_handle); }

    private:
        friend LibraryTransport;
        std::uint32_t m_handle = 0;
        std::vector<std::uint32_t> m_filter;
    };

    LibraryTransport(std::uint32_t noOfEvents, std::uint32_t noOfListeners) : m_service(noOfEvents, noOfListeners) {}

    /// @param filter  the events that the channel takes.
    Channel &add(SListenerCallback &callback, std::vector<std::uint32_t> filter) {
        Channel &channel = m_channels.emplace_back();
        channel.m_filter = std::move(filter);
        channel.m_handle = m_service.add(callback, channel.m_filter);
        return channel;
    }

    /// One fire for all listeners, as the service does it.
    void sendToAll(std::uint32_t event) { CEventHandler_FireEvent(event); }
    void sendCopyToAll(std::uint32_t event, const void *data, std::uint32_t size) {
        CEventHandler_FireEventWithCopiedData(event, data, size);
    }

private:
    std::list<Channel> m_channels; // outlives the service, which keeps the filters
    EventService m_service;
};

/// What the transports without a service of their own share: a channel for each listener, a send for each channel.
template <class ChannelType>
class Transport {
public:
    using Channel = ChannelType;

    Transport(std::uint32_t /*noOfEvents*/, std::uint32_t /*noOfListeners*/) {}

    Channel &add(SListenerCallback &callback, const std::vector<std::uint32_t> & /*filter*/) {
        m_channels.push_back(std::make_unique<Channel>(callback));
        return *m_channels.back();
    }
    void sendToAll(std::uint32_t event) {
        for (const std::unique_ptr<Channel> &channel : m_channels) {
            channel->send(event);
        }
    }
    void sendCopyToAll(std::uint32_t event, const void *data, std::uint32_t size) {
        for (const std::unique_ptr<Channel> &channel : m_channels) {
            channel->sendCopy(event, data, size);
        }
    }

private:
    std::vector<std::unique_ptr<Channel>> m_channels;
};

inline SEventDataMessage makeMessage(std::uint32_t event, void *data, std::uint32_t isCopied) {
    SEventDataMessage message;
    std::memset(&message, 0, sizeof message);
    message.eventId = event;
    message.pData = data;
    message.isCopied = isCopied;
    return message;
}

inline void callBack(SListenerCallback &callback, const SEventDataMessage &message) {
    callback.function(callback.context, message.eventId, message.pData, &callback);
}

/// The limit: the calls of the system and nothing else.
class QueueChannel {
public:
    explicit QueueChannel(SListenerCallback &callback);
    QueueChannel(const QueueChannel &) = delete;
    QueueChannel &operator=(const QueueChannel &) = delete;
    ~QueueChannel();

    void send(std::uint32_t event) { sendMessage(makeMessage(event, nullptr, 0)); }
    void sendCopy(std::uint32_t event, const void *data, std::uint32_t size) {
        char *copy = new char[size];
        std::memcpy(copy, data, size);
        sendMessage(makeMessage(event, copy, 1));
    }
    void receive() {
        SEventDataMessage message;
        mq_receive(m_queue, reinterpret_cast<char *>(&message), sizeof message, nullptr);
        callBack(m_callback, message);
        if (message.isCopied != 0) {
            delete[] static_cast<char *>(message.pData);
        }
    }

private:
    void sendMessage(const SEventDataMessage &message) {
        mq_send(m_queue, reinterpret_cast<const char *>(&message), sizeof message, 0);
    }

    SListenerCallback &m_callback;
    mqd_t m_queue;
};

/// A pair of UNIX datagram sockets.
class SocketChannel {
public:
    explicit SocketChannel(SListenerCallback &callback);
    SocketChannel(const SocketChannel &) = delete;
    SocketChannel &operator=(const SocketChannel &) = delete;
    ~SocketChannel();

    void send(std::uint32_t event);
    void receive();

private:
    SListenerCallback &m_callback;
    int m_sockets[2] = {-1, -1};
};

/// A pair of ZeroMQ sockets within the process.
class ZeroMqChannel {
public:
    explicit ZeroMqChannel(SListenerCallback &callback);
    ZeroMqChannel(const ZeroMqChannel &) = delete;
    ZeroMqChannel &operator=(const ZeroMqChannel &) = delete;
    ~ZeroMqChannel();

    void send(std::uint32_t event);
    void receive();
    /// The data travels in the message, which receive hands to the callback.
    void sendCopy(std::uint32_t event, const void *data, std::uint32_t size);
    void receiveCopy();

private:
    SListenerCallback &m_callback;
    void *m_sender = nullptr;
    void *m_receiver = nullptr;
};

/// ZeroMQ's publisher and subscribers within the process. Nobody sends again before every subscriber was called: a full
/// one would lose messages.
class ZeroMqPublisher {
public:
    class Channel {
    public:
        void receive();

    private:
        friend ZeroMqPublisher;
        SListenerCallback *m_callback = nullptr;
        void *m_socket = nullptr;
    };

    ZeroMqPublisher(std::uint32_t noOfEvents, std::uint32_t noOfListeners);
    ZeroMqPublisher(const ZeroMqPublisher &) = delete;
    ZeroMqPublisher &operator=(const ZeroMqPublisher &) = delete;
    ~ZeroMqPublisher();

    Channel &add(SListenerCallback &callback, const std::vector<std::uint32_t> &filter);
    void sendToAll(std::uint32_t event);

private:
    std::string m_address;
    void *m_socket;
    std::list<Channel> m_channels;
};

/// GLib's queue between threads; a message is a block of its own, as its users make them.
class GLibChannel {
public:
    explicit GLibChannel(SListenerCallback &callback) : m_callback(callback), m_queue(g_async_queue_new()) {}
    GLibChannel(const GLibChannel &) = delete;
    GLibChannel &operator=(const GLibChannel &) = delete;
    ~GLibChannel() { g_async_queue_unref(m_queue); }

    void send(std::uint32_t event) {
        auto *message = g_new(SEventDataMessage, 1);
        *message = makeMessage(event, nullptr, 0);
        g_async_queue_push(m_queue, message);
    }
    void receive() {
        auto *message = static_cast<SEventDataMessage *>(g_async_queue_pop(m_queue));
        callBack(m_callback, *message);
        g_free(message);
    }

private:
    SListenerCallback &m_callback;
    GAsyncQueue *m_queue;
};

/// What one writes oneself: a deque behind a mutex, with as much room as a listener's queue has.
class DequeChannel {
public:
    explicit DequeChannel(SListenerCallback &callback) : m_callback(callback) {}

    void send(std::uint32_t event) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_hasRoom.wait(lock, [this] { return m_messages.size() < room; });
        m_messages.push_back(makeMessage(event, nullptr, 0));
        m_hasMessage.notify_one();
    }
    void receive() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_hasMessage.wait(lock, [this] { return !m_messages.empty(); });
        const SEventDataMessage message = m_messages.front();
        m_messages.pop_front();
        m_hasRoom.notify_one();
        lock.unlock();
        callBack(m_callback, message);
    }

private:
    static constexpr std::size_t room = 10;

    SListenerCallback &m_callback;
    std::mutex m_mutex;
    std::condition_variable m_hasMessage;
    std::condition_variable m_hasRoom;
    std::deque<SEventDataMessage> m_messages;
};

/// Method calls over D-Bus, straight from one end of a socket to the other, answered by a thread on the same processor.
class DBusCaller {
public:
    DBusCaller();
    DBusCaller(const DBusCaller &) = delete;
    DBusCaller &operator=(const DBusCaller &) = delete;
    ~DBusCaller();

    /// A call with an event's number and the answer to it.
    void call(std::uint32_t event);

private:
    class Ends;
    std::unique_ptr<Ends> m_ends;
};

} // namespace speed
