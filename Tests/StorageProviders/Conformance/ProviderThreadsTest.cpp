// A variable's lock is held while its content is copied.
#include <atomic>
#include <thread>

#include "Conformance.h"

namespace {

using test::Conformance;
using test::contentOf;
using test::Firmware;
using test::setContent;
using test::TraceRecorder;

using Bytes = std::vector<unsigned char>;

constexpr std::uint32_t size = 16384;

/// Does something over and over until it goes, and counts.
class Repeating {
public:
    template <class Step>
    explicit Repeating(Step step)
        : m_thread([this, step] {
              for (std::uint32_t i = 0; !m_isOver; ++i) {
                  step(i);
                  ++m_rounds;
              }
          }) {}
    ~Repeating() {
        m_isOver = true;
        m_thread.join();
    }
    Repeating(const Repeating &) = delete;
    Repeating &operator=(const Repeating &) = delete;

    /// Returns once another round was made.
    void awaitRound() const {
        for (const std::uint32_t before = m_rounds; m_rounds == before;) {
            std::this_thread::yield();
        }
    }

private:
    std::atomic<bool> m_isOver{false};
    std::atomic<std::uint32_t> m_rounds{0};
    std::thread m_thread; // after what it uses
};

Bytes filledWith(std::uint32_t number) {
    return Bytes(size, static_cast<unsigned char>(number));
}

CVariable *addVariable(Firmware &firmware) {
    return firmware.variable(firmware.object("O"), "V", TYPE_UINT8_ARRAY, size, Bytes(size));
}

TEST_F(Conformance, AValueThatIsBeingChanged_IsStoredWhole) {
    TraceRecorder::reset(0, 0);
    Firmware firmware;
    CVariable *variable = addVariable(firmware);
    const Repeating changing([variable](std::uint32_t round) { setContent(variable, filledWith(round)); });
    for (int i = 0; i < 10; ++i) {
        changing.awaitRound();
        EXPECT_EQ(eAF_S_OK, firmware.store(*provider));
        restart();
        Firmware reader;
        const CVariable *copy = addVariable(reader);
        EXPECT_EQ(eAF_S_OK, reader.retrieve(*provider));
        const Bytes content = contentOf(copy);
        EXPECT_EQ(filledWith(content[0]), content) << "torn";
    }
}

TEST_F(Conformance, AValueThatIsBeingRead_IsRetrievedWhole) {
    TraceRecorder::reset(0, 0);
    Firmware firmware;
    CVariable *variable = addVariable(firmware);
    setContent(variable, filledWith(1));
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    std::atomic<int> noOfTorn{0};
    const Repeating reading([variable, &noOfTorn](std::uint32_t /*round*/) {
        CVariable_Lock(variable);
        const Bytes content = contentOf(variable);
        CVariable_UnLock(variable);
        if (content != filledWith(content[0])) {
            ++noOfTorn;
        }
    });
    for (std::uint32_t i = 2; i < 12; ++i) {
        setContent(variable, filledWith(i));
        reading.awaitRound();
        EXPECT_EQ(eAF_S_OK, firmware.retrieve(*provider));
        EXPECT_EQ(filledWith(1), contentOf(variable));
    }
    EXPECT_EQ(0, noOfTorn);
}

} // namespace
