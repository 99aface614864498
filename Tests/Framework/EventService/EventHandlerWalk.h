/// @file
/// Operations on the event service and on its model, which must agree in every answer, trace and delivery. What is done
/// is chosen by somebody else.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Choices.h"
#include "EventHandlerModel.h"
#include "EventService.h"

namespace test {

/// One at a time: the service is the process's.
class EventHandlerWalk : public EventService {
public:
    explicit EventHandlerWalk(Choices &choices);
    ~EventHandlerWalk() override;

    /// What follows happens before the service is initialized.
    void beginLife();
    void initialize();
    void unInitialize();

    /// Fails the test where the two differ; what they trace is compared by compareTraces.
    void step();
    void compareTraces();

    std::size_t deliveries() const { return m_deliveries; }
    /// The last operations.
    const std::vector<std::string> &log() const { return m_log; }

private:
    using Letters = std::array<char, 8>;
    static constexpr std::uint32_t noOfIds = 90; ///< More than the cache holds.
    static constexpr std::uint32_t noOfOddCalls = 8;

    void TestBody() override {}

    std::uint32_t below(std::uint32_t limit) { return m_choices.below(limit); }
    bool oneIn(std::uint32_t times) { return m_choices.oneIn(times); }

    void operate();
    std::uint32_t anyId();
    void registerEvent(std::uint32_t id);
    void addListener();
    void fire();
    std::string copyMadeOf(const Letters &letters);
    static EAFResult fireReally(std::uint32_t operation, std::uint32_t id, const ModelMessage &message,
                                const void *copied);
    void fireFromMessage();
    std::uint32_t anyHandle();
    std::uint32_t fullestListener();
    void pump();
    void expectDelivery(const ModelMessage &expected, const Delivery &delivery);
    void sendEmptyMessage();
    void askForNames();
    void askForNumbers();
    void odd();
    void addNobody(std::uint32_t which);
    void copyFromNull(std::uint32_t id, std::uint32_t round);
    /// The service leaves its listeners' queues open, and copies in them: both would pile up over the lives.
    void closeQueuesOfThisLife();
    void note(const std::string &operation);

    Choices &m_choices;
    EventHandlerModel m_model;
    Listener m_record{"recorder"};
    std::vector<std::string> m_queueNames;
    std::vector<std::unique_ptr<std::vector<std::uint32_t>>> m_filters;
    std::array<Letters, 3> m_words{{{'w', 'o', 'r', 'd'}, {'t', 'w', 'o'}, {}}};
    std::vector<std::string> m_log;
    std::uint32_t m_oddCalls = 0;
    std::size_t m_copies = 0;
    std::size_t m_deliveries = 0;
};

} // namespace test
