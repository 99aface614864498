// What a provider owes when something fails: a code, a trace that names what it is about, and every value intact.
#include "Conformance.h"
#include "Unlockable.h"

namespace {

using test::Conformance;
using test::Firmware;
using test::setValue;
using test::TraceRecorder;
using test::Unlockable;
using test::valueOf;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;

using Bytes = std::vector<unsigned char>;

class ProviderFaults : public Conformance {
protected:
    /// One firmware's variables; each default is 70.
    struct Unit {
        Unit() {
            CStorageObject *object = firmware.object("O");
            first = firmware.single(object, "First", TYPE_INT32, 0, &defaultValue);
            second = firmware.single(object, "Second", TYPE_INT32, 0, &defaultValue);
            big = firmware.variable(object, "Big", TYPE_UINT8_ARRAY, size, Bytes(size));
        }
        void set(std::int32_t value) {
            setValue(first, value);
            setValue(second, value + 1);
            test::setContent(big, Bytes(size, static_cast<unsigned char>(value)));
        }
        void expect(std::int32_t value) {
            EXPECT_EQ(value, valueOf<std::int32_t>(first));
            EXPECT_EQ(value + 1, valueOf<std::int32_t>(second));
            EXPECT_EQ(Bytes(size, static_cast<unsigned char>(value)), test::contentOf(big));
        }

        static constexpr std::uint32_t size = 20000;
        const std::int32_t defaultValue = 70;
        Firmware firmware;
        CVariable *first;
        CVariable *second;
        CVariable *big;
    };

    ProviderFaults() {
        unit.set(5);
        EXPECT_EQ(eAF_S_OK, unit.firmware.store(*provider));
        TraceRecorder::reset();
    }

    /// What a fresh start finds.
    void expectStored(std::int32_t value) {
        restart();
        unit.set(0);
        EXPECT_EQ(eAF_S_OK, unit.firmware.retrieve(*provider));
        unit.expect(value);
    }

    const std::string file = folder.file("one.store");
    Unit unit;
};

TEST_F(ProviderFaults, AWriteThatFails_IsACodeATraceAndNoNewValue) {
    unit.set(6);
    provider->refuseWrites();
    const EAFResult stored = unit.firmware.store(*provider);
    provider->allowWrites();
    EXPECT_THAT(stored, Ge(eAF_E_FAILED));
    EXPECT_THAT(told(1), Contains(HasSubstr(file)));
    EXPECT_EQ(0u, statistics().noOfValuesWritten);
    unit.expect(6);
    expectStored(5);
}

TEST_F(ProviderFaults, AWriteThatFailed_IsMadeUpByTheNextStore) {
    unit.set(6);
    provider->refuseWrites();
    EXPECT_THAT(unit.firmware.store(*provider), Ge(eAF_E_FAILED));
    EXPECT_THAT(unit.firmware.store(*provider), Ge(eAF_E_FAILED)) << "it still fails";
    provider->allowWrites();
    EXPECT_EQ(eAF_S_OK, unit.firmware.store(*provider));
    EXPECT_EQ(3u, statistics().noOfValuesWritten);
    expectStored(6);
}

TEST_F(ProviderFaults, AVariableThatWentBackAfterAFailedWrite_IsStoredAsItIs) {
    unit.set(6);
    provider->refuseWrites();
    EXPECT_THAT(unit.firmware.store(*provider), Ge(eAF_E_FAILED));
    provider->allowWrites();
    unit.set(5);
    EXPECT_EQ(eAF_S_OK, unit.firmware.store(*provider));
    expectStored(5);
}

TEST_F(ProviderFaults, AFirstWriteThatFails_LeavesAStoreThatCanBeStarted) {
    Firmware other(2);
    CVariable *variable = other.single(other.object("O"), "V", TYPE_INT32, 1);
    provider->refuseWrites();
    EXPECT_THAT(other.store(*provider), Ge(eAF_E_FAILED));
    provider->allowWrites();
    EXPECT_EQ(eAF_S_OK, other.store(*provider));
    restart();
    setValue(variable, 0);
    EXPECT_EQ(eAF_S_OK, other.retrieve(*provider));
    EXPECT_EQ(1, valueOf<std::int32_t>(variable));
}

TEST_F(ProviderFaults, AFirstWriteThatFailedBeforeARestart_LeavesNothing) {
    Firmware other(2);
    const CVariable *variable = other.single(other.object("O"), "V", TYPE_INT32, 1, &unit.defaultValue);
    provider->refuseWrites();
    EXPECT_THAT(other.store(*provider), Ge(eAF_E_FAILED));
    provider->allowWrites();
    restart();
    EXPECT_EQ(eAF_S_OK, other.retrieve(*provider));
    EXPECT_EQ(70, valueOf<std::int32_t>(variable));
    EXPECT_EQ(eAF_S_OK, other.store(*provider));
}

TEST_F(ProviderFaults, AnUnchangedStore_NeedsNoRoom) {
    provider->refuseWrites();
    EXPECT_EQ(eAF_S_OK, unit.firmware.store(*provider));
    provider->allowWrites();
}

class AStoreThatIsUnreadable : public ProviderFaults {
protected:
    AStoreThatIsUnreadable() {
        provider->close();
        provider->makeUnreadable(folder.name());
        EXPECT_EQ(eAF_S_OK, provider->setFile(1, file));
    }
    ~AStoreThatIsUnreadable() override { becomeReadable(); }
    AStoreThatIsUnreadable(const AStoreThatIsUnreadable &) = delete;
    AStoreThatIsUnreadable &operator=(const AStoreThatIsUnreadable &) = delete;

    void becomeReadable() {
        if (m_isUnreadable) {
            provider->makeReadable(folder.name());
            m_isUnreadable = false;
        }
    }

private:
    bool m_isUnreadable = true;
};

TEST_F(AStoreThatIsUnreadable, FailsToInitialiseAndSaysWhichFile) {
    EXPECT_THAT(provider->table()->Initialize(1), Ge(eAF_E_FAILED));
    EXPECT_THAT(told(1), Contains(HasSubstr(file)));
}

TEST_F(AStoreThatIsUnreadable, FailsToRetrieveAndTheDefaultsHold) {
    CVariable_SetRetrieved(unit.first, 1);
    EXPECT_THAT(unit.firmware.retrieve(*provider), Ge(eAF_E_FAILED));
    EXPECT_EQ(70, valueOf<std::int32_t>(unit.first));
    EXPECT_EQ(70, valueOf<std::int32_t>(unit.second));
    EXPECT_EQ(Bytes(unit.size, 5), test::contentOf(unit.big)) << "without a default it stays";
    for (const CVariable *variable : {unit.first, unit.second, unit.big}) {
        EXPECT_EQ(0u, variable->retrieved);
    }
    EXPECT_EQ(0u, statistics().noOfValuesRetrieved);
}

TEST_F(AStoreThatIsUnreadable, IsNotWrittenWithDefaultsOnceItIsBack) {
    EXPECT_THAT(unit.firmware.retrieve(*provider), Ge(eAF_E_FAILED));
    becomeReadable();
    TraceRecorder::reset();
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, unit.firmware.store(*provider));
    EXPECT_THAT(told(1), Contains(AllOf(HasSubstr(file), HasSubstr("retrieve it first"))));
    EXPECT_EQ(eAF_S_OK, unit.firmware.retrieve(*provider));
    unit.expect(5);
    unit.set(6);
    EXPECT_EQ(eAF_S_OK, unit.firmware.store(*provider));
    expectStored(6);
}

TEST_F(AStoreThatIsUnreadable, IsOpenedByTheRetrieveOnceItIsBack) {
    EXPECT_THAT(provider->table()->Initialize(1), Ge(eAF_E_FAILED));
    becomeReadable();
    unit.set(0);
    EXPECT_EQ(eAF_S_OK, unit.firmware.retrieve(*provider));
    unit.expect(5);
}

TEST_F(AStoreThatIsUnreadable, IsOpenedByTheStoreOnceItIsBack) {
    EXPECT_THAT(provider->table()->Initialize(1), Ge(eAF_E_FAILED));
    unit.set(6);
    EXPECT_THAT(unit.firmware.store(*provider), Ge(eAF_E_FAILED));
    becomeReadable();
    EXPECT_EQ(eAF_S_OK, unit.firmware.store(*provider));
    expectStored(6);
}

TEST_F(AStoreThatIsUnreadable, DoesNotKeepAnotherLocationFromItsOwn) {
    const std::string elsewhere = folder.name() + "-elsewhere.store";
    ASSERT_EQ(eAF_S_OK, provider->setFile(2, elsewhere));
    Firmware other(2);
    const CVariable *variable = other.single(other.object("O"), "V", TYPE_INT32, 1);
    EXPECT_THAT(unit.firmware.retrieve(*provider), Ge(eAF_E_FAILED));
    EXPECT_EQ(eAF_S_OK, other.retrieve(*provider));
    EXPECT_EQ(eAF_S_OK, other.store(*provider));
    EXPECT_EQ(1, valueOf<std::int32_t>(variable));
}

TEST_F(ProviderFaults, AVariableThatCanNotBeLocked_KeepsItsStoredValueAndTheOthersAreStored) {
    unit.set(6);
    {
        const Unlockable unlockable(unit.first);
        EXPECT_EQ(eAF_E_FAILED, unit.firmware.store(*provider));
    }
    EXPECT_EQ(2u, statistics().noOfValuesWritten);
    EXPECT_THAT(told(1), ElementsAre(HasSubstr("Cfg/O/First")));
    restart();
    unit.set(0);
    EXPECT_EQ(eAF_S_OK, unit.firmware.retrieve(*provider));
    EXPECT_EQ(5, valueOf<std::int32_t>(unit.first));
    EXPECT_EQ(7, valueOf<std::int32_t>(unit.second));
}

TEST_F(ProviderFaults, AVariableThatCanNotBeLockedForARetrieve_GetsItsDefaultWhichIsNotStored) {
    unit.set(0);
    {
        const Unlockable unlockable(unit.first);
        EXPECT_EQ(eAF_E_FAILED, unit.firmware.retrieve(*provider));
    }
    EXPECT_EQ(70, valueOf<std::int32_t>(unit.first));
    EXPECT_EQ(6, valueOf<std::int32_t>(unit.second));
    EXPECT_THAT(told(1), ElementsAre(HasSubstr("Cfg/O/First")));
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, unit.firmware.store(*provider));
    expectStored(5);
}

TEST_F(ProviderFaults, ARegionWithoutAName_FailsAndWhatWasReachedIsStored) {
    unit.set(6);
    CStorageRegion nameless{};
    CStorageRegion_Construct(&nameless, "Later", 1);
    ASSERT_EQ(eAF_S_OK, CDatabase_AddRegion(unit.firmware.database(), &nameless));
    const char initial = nameless.name[0];
    nameless.name[0] = '\0';
    EXPECT_EQ(eAF_E_FAILED, unit.firmware.store(*provider));
    EXPECT_EQ(3u, statistics().noOfValuesWritten);
    unit.set(0);
    EXPECT_EQ(eAF_E_FAILED, unit.firmware.retrieve(*provider));
    unit.expect(6);
    nameless.name[0] = initial; // by its name it is removed, before it goes
    ASSERT_EQ(eAF_S_OK, CDatabase_RemoveRegion(unit.firmware.database(), "Later"));
    expectStored(6);
}

} // namespace
