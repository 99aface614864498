/// @file
/// Another program, of the same user or of another, that does with a queue what nobody asked it to.
///
///     ForeignProgram flood QUEUE EVENT [MOST]  sends 1, 2, 3, ... as the data of an event, for ever or as many
///     ForeignProgram rush QUEUE                opens, fills and closes the queue over and over, whoever makes it anew
///     ForeignProgram take QUEUE COUNT          receives that many messages and prints their data
///     ForeignProgram steal QUEUE               receives from the queue over and over, whoever makes it anew
///     ForeignProgram sizes QUEUE               sends one message of each size that the queue takes, from 0 on
///     ForeignProgram garbage QUEUE COUNT SEED  sends random records that carry no copy, at random priorities
///     ForeignProgram noise QUEUE COUNT SEED    sends random bytes of random sizes
///     ForeignProgram unlink QUEUE...           removes the names
///     ForeignProgram make QUEUE SIZE MOST FILL [MODE]
///                                              makes a queue of other messages, with as many of them; MODE is octal
///                                              and under no umask, 600 unless given
///     ForeignProgram exhaust QUEUE ERROR       makes QUEUE0, QUEUE1, ... until that error comes; those there are fine
///
/// Prints "ready" when it has begun; exit code 0 when it did all that, else 1 with a word on what failed.
#include <fcntl.h>
#include <mqueue.h>
#include <sys/stat.h>
#include <unistd.h>

#include <time.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "CEventTask.h"

namespace {

constexpr unsigned highestPriority = 32767;

int failed(const std::string &what) {
    std::fprintf(stderr, "ForeignProgram: %s: %s\n", what.c_str(), std::strerror(errno));
    return 1;
}

void sayReady() {
    std::printf("ready\n");
    std::fflush(stdout);
}

unsigned long number(const std::string &text) {
    return std::strtoul(text.c_str(), nullptr, 10);
}

/// A moment from now on, for waits that end.
timespec soon(long milliseconds) {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    time.tv_nsec += milliseconds * 1000000;
    time.tv_sec += time.tv_nsec / 1000000000;
    time.tv_nsec %= 1000000000;
    return time;
}

/// A message as the library sends it: what no field fills is zero.
SEventDataMessage record(std::uint32_t eventId, std::uintptr_t data, std::uint32_t isCopied = 0) {
    SEventDataMessage message;
    std::memset(&message, 0, sizeof message);
    message.eventId = eventId;
    std::memcpy(&message.pData, &data, sizeof data);
    message.isCopied = isCopied;
    return message;
}

int flood(mqd_t queue, std::uint32_t eventId, std::uintptr_t most) {
    for (std::uintptr_t i = 1; most == 0 || i <= most; ++i) {
        const SEventDataMessage message = record(eventId, i);
        if (mq_send(queue, reinterpret_cast<const char *>(&message), sizeof message, 0) != 0) {
            return failed("mq_send");
        }
    }
    return 0;
}

[[noreturn]] void rush(const std::string &name) {
    for (std::uint32_t i = 0;; ++i) {
        const mqd_t queue = mq_open(name.c_str(), O_WRONLY);
        for (int n = 0; n < 50 && queue != -1; ++n) {
            const SEventDataMessage message = record(1 + i % 3, 0);
            const timespec end = soon(5);
            mq_timedsend(queue, reinterpret_cast<const char *>(&message), sizeof message, i % 2 * highestPriority,
                         &end);
        }
        queue != -1 ? mq_close(queue) : usleep(100);
    }
}

int take(mqd_t queue, unsigned long count) {
    for (unsigned long i = 0; i < count; ++i) {
        SEventDataMessage message = record(0, 0);
        if (mq_receive(queue, reinterpret_cast<char *>(&message), sizeof message, nullptr) < 0) {
            return failed("mq_receive");
        }
        std::printf("%zu\n", reinterpret_cast<std::size_t>(message.pData));
    }
    return 0;
}

[[noreturn]] void steal(const std::string &name) {
    for (;;) {
        const mqd_t queue = mq_open(name.c_str(), O_RDONLY);
        for (int n = 0; n < 3 && queue != -1; ++n) {
            SEventDataMessage message;
            const timespec end = soon(5);
            mq_timedreceive(queue, reinterpret_cast<char *>(&message), sizeof message, nullptr, &end);
        }
        queue != -1 ? mq_close(queue) : usleep(100);
    }
}

/// Size n: id 0x01010101 and data 0x02.. as far as n goes; never a copy to free.
int sendEverySize(mqd_t queue, std::size_t largest) {
    SEventDataMessage message = record(0x01010101, 0);
    std::memset(static_cast<void *>(&message.pData), 2, sizeof message.pData);
    for (std::size_t size = 0; size <= largest; ++size) {
        if (mq_send(queue, reinterpret_cast<const char *>(&message), size, 0) != 0) {
            return failed("mq_send of " + std::to_string(size) + " bytes");
        }
    }
    if (mq_send(queue, std::vector<char>(largest + 1).data(), largest + 1, 0) == 0 || errno != EMSGSIZE) {
        return failed("mq_send of too many bytes was not refused");
    }
    return 0;
}

int sendGarbage(mqd_t queue, unsigned long count, std::mt19937_64 random) {
    for (unsigned long i = 0; i < count; ++i) {
        auto eventId = static_cast<std::uint32_t>(random());
        eventId = eventId == EVENT_ID_STOP ? 0 : eventId;
        const bool isCopied = random() % 4 == 0;
        const SEventDataMessage message =
            record(eventId, isCopied ? 0 : static_cast<std::uintptr_t>(random()), isCopied ? ~0u : 0);
        const auto priority = static_cast<unsigned>(random() % (highestPriority + 1));
        if (mq_send(queue, reinterpret_cast<const char *>(&message), sizeof message, priority) != 0) {
            return failed("mq_send");
        }
    }
    return 0;
}

int sendNoise(mqd_t queue, unsigned long count, std::mt19937_64 random) {
    for (unsigned long i = 0; i < count; ++i) {
        char bytes[sizeof(SEventDataMessage)];
        for (char &byte : bytes) {
            byte = static_cast<char>(random());
        }
        // Never a small id: those are events of the process that reads it.
        bytes[sizeof(std::uint32_t) - 1] = bytes[0] = 0x55;
        if (mq_send(queue, bytes, static_cast<std::size_t>(random() % (sizeof bytes + 1)),
                    static_cast<unsigned>(random() % 2)) != 0) {
            return failed("mq_send");
        }
    }
    return 0;
}

int unlinkAll(const std::vector<std::string> &names) {
    for (const std::string &name : names) {
        if (mq_unlink(name.c_str()) != 0) {
            return failed("mq_unlink " + name);
        }
    }
    return 0;
}

int make(const std::string &name, unsigned long size, unsigned long most, unsigned long fill, mode_t mode) {
    mq_attr attributes{};
    attributes.mq_msgsize = static_cast<long>(size);
    attributes.mq_maxmsg = static_cast<long>(most);
    umask(0);
    const mqd_t queue = mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, mode, &attributes);
    if (queue == -1) {
        return failed("mq_open " + name);
    }
    const std::vector<char> zeros(size);
    for (unsigned long i = 0; i < fill; ++i) {
        if (mq_send(queue, zeros.data(), zeros.size(), 0) != 0) {
            return failed("mq_send");
        }
    }
    return 0;
}

int exhaust(const std::string &name, int error) {
    mq_attr attributes{};
    attributes.mq_msgsize = 1;
    attributes.mq_maxmsg = 1;
    for (int i = 0;; ++i) {
        const mqd_t queue = mq_open((name + std::to_string(i)).c_str(), O_RDWR | O_CREAT, mode_t{0600}, &attributes);
        if (queue == -1) {
            return errno == error ? 0 : failed("mq_open number " + std::to_string(i));
        }
        mq_close(queue);
    }
}

int run(const std::vector<std::string> &words) {
    const std::string &what = words.at(0);
    const std::string &name = words.at(1);
    if (what == "unlink") {
        return unlinkAll({words.begin() + 1, words.end()});
    }
    if (what == "make") {
        const std::string mode = words.size() > 5 ? words[5] : "600";
        return make(name, number(words.at(2)), number(words.at(3)), number(words.at(4)),
                    static_cast<mode_t>(std::strtoul(mode.c_str(), nullptr, 8)));
    }
    if (what == "exhaust") {
        return exhaust(name, static_cast<int>(number(words.at(2))));
    }
    if (what == "rush" || what == "steal") {
        sayReady();
        what == "rush" ? rush(name) : steal(name);
    }
    const mqd_t queue = mq_open(name.c_str(), what == "take" ? O_RDONLY : O_WRONLY);
    if (queue == -1) {
        return failed("mq_open " + name);
    }
    sayReady();
    if (what == "flood") {
        return flood(queue, static_cast<std::uint32_t>(number(words.at(2))), words.size() > 3 ? number(words[3]) : 0);
    }
    if (what == "take") {
        return take(queue, number(words.at(2)));
    }
    if (what == "sizes") {
        return sendEverySize(queue, sizeof(SEventDataMessage));
    }
    const std::mt19937_64 random(number(words.at(3)));
    return what == "garbage" ? sendGarbage(queue, number(words.at(2)), random)
                             : sendNoise(queue, number(words.at(2)), random);
}

} // namespace

int main(int argc, char **argv) {
    try {
        return run({argv + 1, argv + argc});
    } catch (const std::exception &error) {
        std::fprintf(stderr, "ForeignProgram: %s; the arguments stand in its source\n", error.what());
        return 2;
    }
}
