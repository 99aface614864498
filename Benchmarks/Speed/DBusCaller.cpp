#include <poll.h>

#include <dbus/dbus.h>

#include <stdexcept>
#include <string>
#include <thread>

#include "Channels.h"

namespace {

struct Error {
    Error() { dbus_error_init(&error); }
    Error(const Error &) = delete;
    Error &operator=(const Error &) = delete;
    ~Error() { dbus_error_free(&error); }

    [[noreturn]] void fail(const char *call) const {
        throw std::runtime_error(std::string(call) + ": " + (error.message != nullptr ? error.message : "failed"));
    }

    DBusError error{};
};

void keepConnection(DBusServer * /*server*/, DBusConnection *connection, void *kept) {
    *static_cast<DBusConnection **>(kept) = dbus_connection_ref(connection);
}

dbus_bool_t keepWatch(DBusWatch *watch, void *kept) {
    *static_cast<DBusWatch **>(kept) = watch;
    return TRUE;
}

void forgetWatch(DBusWatch * /*watch*/, void *kept) {
    *static_cast<DBusWatch **>(kept) = nullptr;
}

DBusHandlerResult answer(DBusConnection *connection, DBusMessage *message, void * /*context*/) {
    if (dbus_message_get_type(message) != DBUS_MESSAGE_TYPE_METHOD_CALL) {
        return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
    }
    dbus_uint32_t event = 0;
    dbus_message_get_args(message, nullptr, DBUS_TYPE_UINT32, &event, DBUS_TYPE_INVALID);
    DBusMessage *reply = dbus_message_new_method_return(message);
    dbus_message_append_args(reply, DBUS_TYPE_UINT32, &event, DBUS_TYPE_INVALID);
    dbus_connection_send(connection, reply, nullptr);
    dbus_message_unref(reply);
    return DBUS_HANDLER_RESULT_HANDLED;
}

} // namespace

class speed::DBusCaller::Ends {
public:
    Ends() {
        dbus_threads_init_default();
        Error error;
        m_server = dbus_server_listen("unix:tmpdir=/tmp", &error.error);
        if (m_server == nullptr) {
            error.fail("dbus_server_listen");
        }
        dbus_server_set_new_connection_function(m_server, keepConnection, &m_served, nullptr);
        dbus_server_set_watch_functions(m_server, keepWatch, forgetWatch, nullptr, &m_watch, nullptr);
        char *address = dbus_server_get_address(m_server);
        m_caller = dbus_connection_open_private(address, &error.error);
        dbus_free(address);
        if (m_caller == nullptr) {
            error.fail("dbus_connection_open_private");
        }
        while (m_served == nullptr) {
            pollfd arrival{dbus_watch_get_unix_fd(m_watch), POLLIN, 0};
            poll(&arrival, 1, -1);
            dbus_watch_handle(m_watch, DBUS_WATCH_READABLE);
        }
        dbus_connection_set_exit_on_disconnect(m_caller, FALSE);
        dbus_connection_set_exit_on_disconnect(m_served, FALSE);
        dbus_connection_add_filter(m_served, answer, nullptr, nullptr);
        m_thread = std::thread([this] {
            while (dbus_connection_read_write_dispatch(m_served, -1) != FALSE) {
            }
        });
    }
    Ends(const Ends &) = delete;
    Ends &operator=(const Ends &) = delete;

    ~Ends() {
        // The other end finds itself disconnected, and its thread leaves.
        dbus_connection_close(m_caller);
        m_thread.join();
        dbus_connection_unref(m_caller);
        dbus_connection_close(m_served);
        dbus_connection_unref(m_served);
        dbus_server_disconnect(m_server);
        dbus_server_unref(m_server);
    }

    void call(std::uint32_t event) {
        DBusMessage *message = dbus_message_new_method_call(nullptr, "/speed", "speed.Listener", "Event");
        dbus_message_append_args(message, DBUS_TYPE_UINT32, &event, DBUS_TYPE_INVALID);
        DBusMessage *reply = dbus_connection_send_with_reply_and_block(m_caller, message, -1, nullptr);
        dbus_message_unref(message);
        if (reply == nullptr) {
            throw std::runtime_error("D-Bus: the call was not answered");
        }
        dbus_message_unref(reply);
    }

private:
    DBusServer *m_server = nullptr;
    DBusWatch *m_watch = nullptr;
    DBusConnection *m_caller = nullptr;
    DBusConnection *m_served = nullptr;
    std::thread m_thread;
};

speed::DBusCaller::DBusCaller() : m_ends(std::make_unique<Ends>()) {}
speed::DBusCaller::~DBusCaller() = default;

void speed::DBusCaller::call(std::uint32_t event) {
    m_ends->call(event);
}
