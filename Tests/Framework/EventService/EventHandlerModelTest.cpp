// Random operations on the service and on a model of it, which must agree in every answer, trace and delivery.
// AF_TEST_SEED repeats a run.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>

#include "Choices.h"
#include "EventHandlerWalk.h"
#include "Sanitized.h"

namespace {

#ifdef ZELAF_SANITIZED
constexpr int livesOfARun = 6;
#else
constexpr int livesOfARun = 40;
#endif
constexpr int operationsOfALife = 600;

bool hasFailed() {
    return testing::Test::HasFailure();
}

void perform(test::EventHandlerWalk &walk, int operations) {
    for (int i = 0; i < operations && !hasFailed(); ++i) {
        walk.step();
        if (i % 8 == 7 || i + 1 == operations) {
            walk.compareTraces();
        }
    }
}

void live(test::EventHandlerWalk &walk) {
    walk.beginLife();
    perform(walk, 5);
    walk.initialize();
    perform(walk, operationsOfALife);
    walk.unInitialize();
}

/// A seed may bring few listeners, or few events that they wait for: it then gets more lives.
constexpr std::size_t enough = static_cast<std::size_t>(livesOfARun) * 20;

/// @return how much was delivered.
std::size_t run(std::uint32_t seed) {
    test::RandomChoices choices(seed);
    test::EventHandlerWalk walk(choices);
    for (int life = 0; !hasFailed() && (life < livesOfARun || (walk.deliveries() < enough && life < 5 * livesOfARun));
         ++life) {
        live(walk);
    }
    if (hasFailed()) {
        std::cout << "repeat with AF_TEST_SEED=" << seed << "; last operations:\n";
        for (const std::string &operation : walk.log()) {
            std::cout << "  " << operation << "\n";
        }
    }
    return walk.deliveries();
}

TEST(EventHandlerModelRun, TheServiceAgreesWithTheModel_FromAKnownSeed) {
    EXPECT_GE(run(20240607), enough) << "too little happened to show anything";
}

TEST(EventHandlerModelRun, TheServiceAgreesWithTheModel_FromAnySeed) {
    const char *given = std::getenv("AF_TEST_SEED");
    const std::uint32_t seed =
        given != nullptr ? static_cast<std::uint32_t>(std::strtoul(given, nullptr, 0)) : std::random_device{}();
    std::cout << "AF_TEST_SEED=" << seed << "\n";
    run(seed);
}

} // namespace
