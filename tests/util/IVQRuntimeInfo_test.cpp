// IVQRuntimeInfo and CVQClassID: identity by address, casts through a hierarchy with several bases, and both before
// main and after exit has begun. This unit is compiled with the compiler's own run-time type information, which
// must agree.
#include <IVQRuntimeInfo.h>

#include "support/ChildProcess.h"
#include "support/VirtualSlot.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <typeinfo>

static_assert(!std::is_copy_constructible_v<CVQClassID> && !std::is_copy_assignable_v<CVQClassID>);
static_assert(sizeof(CVQClassID) == sizeof(void*) && sizeof(IVQRuntimeInfo) == sizeof(void*));

namespace {

class CSource : public IVQRuntimeInfo {
public:
    static const CVQClassID sClassID;
    void* doCastToPtr(const CVQClassID& id) override { return &id == &sClassID ? this : castToPtr(id); }
    int mOrigin = 1;
};

class CSink : public IVQRuntimeInfo {
public:
    static const CVQClassID sClassID;
    void* doCastToPtr(const CVQClassID& id) override { return &id == &sClassID ? this : castToPtr(id); }
    int mTarget = 2;
};

class CPipe : public CSource, public CSink {
public:
    static const CVQClassID sClassID;
    void* doCastToPtr(const CVQClassID& id) override {
        if (&id == &sClassID) {
            return this;
        }
        void* const source = CSource::doCastToPtr(id);
        return source != nullptr ? source : CSink::doCastToPtr(id);
    }
    int mLength = 3;
};

/// Takes no part itself: it answers as its base does.
class CLongPipe : public CPipe {};

/// Its own part comes after a base that knows nothing of all this.
class CNamed {
public:
    virtual ~CNamed() = default;
    long mName = 4;
};
class CNamedPipe : public CNamed, public CLongPipe {
public:
    static const CVQClassID sClassID;
    void* doCastToPtr(const CVQClassID& id) override {
        return &id == &sClassID ? this : CLongPipe::doCastToPtr(id);
    }
};

template <class Class>
Class* castTo(IVQRuntimeInfo& object) {
    return static_cast<Class*>(object.doCastToPtr(Class::sClassID));
}

/// Stands before the identifiers of this unit, and so is destroyed after them: asks then, where a test wants it to.
struct LateQuestion {
    ~LateQuestion() {
        if (!isWanted) {
            return;
        }
        CPipe pipe;
        IVQRuntimeInfo& object = static_cast<CSink&>(pipe);
        const bool hasNameOfSource = CSource::sClassID.getName() != nullptr;
        std::printf("%d%d%d %d %s\n", castTo<CPipe>(object) == &pipe ? 1 : 0,
                    castTo<CSource>(object) == &pipe ? 1 : 0,
                    castTo<IVQRuntimeInfo>(object) == static_cast<CSource*>(&pipe) ? 1 : 0, hasNameOfSource ? 1 : 0,
                    IVQRuntimeInfo::sClassID.getName());
        std::fflush(stdout);
    }
    bool isWanted = false;
};
LateQuestion lateQuestion;

const CVQClassID CSource::sClassID("CSource");
const CVQClassID CSink::sClassID("CSink");
const CVQClassID CPipe::sClassID("CPipe");
const CVQClassID CNamedPipe::sClassID("CNamedPipe");

/// Asks while static objects are still being built, of this unit and of others.
struct EarlyQuestion {
    EarlyQuestion() {
        CSource source;
        IVQRuntimeInfo& object = source;
        gotRoot = castTo<IVQRuntimeInfo>(object) == &object;
        gotSource = castTo<CSource>(object) == &source;
        hadName = std::strcmp(IVQRuntimeInfo::sClassID.getName(), "IVQRuntimeInfo") == 0;
    }
    bool gotRoot = false;
    bool gotSource = false;
    bool hadName = false;
};
const EarlyQuestion earlyQuestion;

}  // namespace

TEST(CVQClassID, KeepsItsName) {
    const char name[] = "CExample";
    const CVQClassID id(name);
    EXPECT_EQ(id.getName(), name);
    EXPECT_EQ(CVQClassID(nullptr).getName(), nullptr);
    EXPECT_STREQ(IVQRuntimeInfo::sClassID.getName(), "IVQRuntimeInfo");
}

TEST(CVQClassID, HasNoNameOnceItIsDestroyed) {
    alignas(CVQClassID) unsigned char storage[sizeof(CVQClassID)];
    auto* const id = new (storage) CVQClassID("CExample");
    id->~CVQClassID();
    const unsigned char zeros[sizeof storage] = {};
    EXPECT_EQ(std::memcmp(storage, zeros, sizeof storage), 0);
}

TEST(IVQRuntimeInfo, CastToPtrAnswersForItsOwnIdentifierOnly) {
    CSource source;
    IVQRuntimeInfo& object = source;
    EXPECT_EQ(object.castToPtr(IVQRuntimeInfo::sClassID), &object);
    EXPECT_EQ(object.castToPtr(CSource::sClassID), nullptr);
    const CVQClassID namesake("IVQRuntimeInfo");
    EXPECT_EQ(object.castToPtr(namesake), nullptr);
}

TEST(IVQRuntimeInfo, AClassAnswersForItselfAndItsBase) {
    CSource source;
    IVQRuntimeInfo& object = source;
    EXPECT_EQ(castTo<CSource>(object), &source);
    EXPECT_EQ(castTo<IVQRuntimeInfo>(object), &object);
    EXPECT_EQ(castTo<CSink>(object), nullptr);
    const CVQClassID namesake("CSource");
    EXPECT_EQ(object.doCastToPtr(namesake), nullptr);
}

TEST(IVQRuntimeInfo, AClassWithSeveralBasesAnswersForAllOfThem) {
    CPipe pipe;
    for (IVQRuntimeInfo* object : {static_cast<IVQRuntimeInfo*>(static_cast<CSource*>(&pipe)),
                                   static_cast<IVQRuntimeInfo*>(static_cast<CSink*>(&pipe))}) {
        EXPECT_EQ(castTo<CPipe>(*object), &pipe);
        ASSERT_EQ(castTo<CSource>(*object), &pipe);
        EXPECT_EQ(castTo<CSource>(*object)->mOrigin, 1);
        ASSERT_EQ(castTo<CSink>(*object), &pipe);
        EXPECT_EQ(castTo<CSink>(*object)->mTarget, 2);
        EXPECT_EQ(castTo<CNamedPipe>(*object), nullptr);
        // There are two such bases; the first is the one that answers.
        EXPECT_EQ(castTo<IVQRuntimeInfo>(*object), static_cast<CSource*>(&pipe));
    }
    EXPECT_NE(static_cast<void*>(static_cast<CSource*>(&pipe)), static_cast<void*>(static_cast<CSink*>(&pipe)));
}

TEST(IVQRuntimeInfo, CastsPassThroughClassesThatTakeNoPart) {
    CNamedPipe named;
    IVQRuntimeInfo& object = *static_cast<CSink*>(&named);
    EXPECT_EQ(castTo<CNamedPipe>(object), &named);
    EXPECT_EQ(castTo<CPipe>(object), &named);
    ASSERT_EQ(castTo<CSink>(object), &named);
    EXPECT_EQ(castTo<CSink>(object)->mTarget, 2);
    CLongPipe longPipe;
    EXPECT_EQ(castTo<CNamedPipe>(static_cast<CSource&>(longPipe)), nullptr);
}

TEST(IVQRuntimeInfo, AgreesWithTheCompilersOwnTypeInformation) {
    CNamedPipe named;
    CPipe pipe;
    for (CSource* source : {static_cast<CSource*>(&named), static_cast<CSource*>(&pipe)}) {
        EXPECT_EQ(castTo<CNamedPipe>(*source), dynamic_cast<CNamedPipe*>(source));
        EXPECT_EQ(castTo<CPipe>(*source), dynamic_cast<CPipe*>(source));
        EXPECT_EQ(castTo<CSink>(*source), dynamic_cast<CSink*>(source));
    }
    const IVQRuntimeInfo& object = static_cast<CSource&>(pipe);
    EXPECT_EQ(typeid(object), typeid(CPipe));
}

// The destructor takes the places 0 and 1: one entry for objects, one for objects that `delete` frees.
TEST(IVQRuntimeInfo, HasItsOperationInTheFixedSlot) {
    EXPECT_EQ(support::slotOf(&IVQRuntimeInfo::doCastToPtr), 2);
}

TEST(IVQRuntimeInfo, IsDestroyedThroughTheInterface) {
    static int destroyed = 0;
    struct Counted : CSource {
        ~Counted() override { ++destroyed; }
    };
    std::unique_ptr<IVQRuntimeInfo>(new Counted);
    EXPECT_EQ(destroyed, 1);
}

TEST(IVQRuntimeInfo, AnswersBeforeMain) {
    EXPECT_TRUE(earlyQuestion.gotRoot);
    EXPECT_TRUE(earlyQuestion.gotSource);
    EXPECT_TRUE(earlyQuestion.hadName);
}

TEST(IVQRuntimeInfo, AnswersDuringExitForIdentifiersThatAreDestroyedToo) {
    const support::ChildResult child = support::runInChild([] {
        lateQuestion.isWanted = true;
        std::exit(0);
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
    EXPECT_EQ(child.out, "111 0 IVQRuntimeInfo\n");
}
