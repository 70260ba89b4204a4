// TVQOptional: layout, the life of the object in it, and its use as a condition.
#include <TVQOptional.h>

#include <CVQCriticalSection.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

namespace {

const VQPrivate::TVQInplaceFactory_0 kInPlace;

struct SCounted {
    SCounted() : number(++sMade) { ++sAlive; }
    ~SCounted() {
        --sAlive;
        sLog += std::to_string(number) + ' ';
    }
    int number;
    static inline int sMade;
    static inline int sAlive;
    static inline std::string sLog;
};

/// A factory of the user's own.
struct SFactory {
    int value;
    template <class T>
    void apply(void* storage) const {
        ::new (storage) T{value};
    }
};

template <class Optional>
unsigned char flagOf(const Optional& optional) {
    unsigned char flag;
    std::memcpy(&flag, &optional, 1);
    return flag;
}

using Section = TVQOptional<CVQCriticalSection, 8u, 4u>;
static_assert(sizeof(Section) == 12 && alignof(Section) == 4);
static_assert(sizeof(TVQOptional<char>) == 2 && sizeof(TVQOptional<int, 16u, 8u>) == 24);
static_assert(!std::is_copy_constructible_v<Section> && !std::is_copy_assignable_v<Section>);
static_assert(!std::is_convertible_v<Section, int> && !std::is_convertible_v<Section, void*>);

class TVQOptionalTest : public testing::Test {
protected:
    void SetUp() override {
        SCounted::sMade = SCounted::sAlive = 0;
        SCounted::sLog.clear();
    }
};

}  // namespace

TEST_F(TVQOptionalTest, IsEmptyAtFirst) {
    TVQOptional<SCounted> optional;
    EXPECT_FALSE(optional);
    EXPECT_TRUE(!optional);
    EXPECT_EQ(nullptr, optional.get());
    EXPECT_EQ(0, flagOf(optional));
    EXPECT_EQ(0, SCounted::sMade);
}

TEST_F(TVQOptionalTest, ConstructBuildsTheObjectBehindTheFlag) {
    TVQOptional<SCounted> optional;
    optional.construct<VQPrivate::TVQInplaceFactory_0>(kInPlace);
    EXPECT_TRUE(optional);
    EXPECT_EQ(1, flagOf(optional));
    ASSERT_NE(nullptr, optional.get());
    EXPECT_EQ(1, optional.get()->number);
    EXPECT_EQ(4, reinterpret_cast<char*>(optional.get()) - reinterpret_cast<char*>(&optional));
    const auto& constant = optional;
    EXPECT_EQ(optional.get(), constant.get());
}

TEST_F(TVQOptionalTest, DestroyOfAnEmptyOneDoesNothing) {
    TVQOptional<SCounted> optional;
    optional.destroy();
    optional.destroy();
    EXPECT_EQ("", SCounted::sLog);
}

TEST_F(TVQOptionalTest, DestroyEndsTheObjectOnce) {
    TVQOptional<SCounted> optional;
    optional.construct(kInPlace);
    optional.destroy();
    EXPECT_FALSE(optional);
    EXPECT_EQ(0, flagOf(optional));
    EXPECT_EQ(nullptr, optional.get());
    optional.destroy();
    EXPECT_EQ("1 ", SCounted::sLog);
    EXPECT_EQ(0, SCounted::sAlive);
}

TEST_F(TVQOptionalTest, ResetDestroysTheOldObjectFirst) {
    TVQOptional<SCounted> optional;
    optional.reset<VQPrivate::TVQInplaceFactory_0>(kInPlace);
    EXPECT_EQ("", SCounted::sLog);
    optional.reset(kInPlace);
    EXPECT_EQ("1 ", SCounted::sLog);
    EXPECT_EQ(2, optional.get()->number);
    EXPECT_EQ(1, SCounted::sAlive);
}

TEST_F(TVQOptionalTest, EndsItsObjectAtItsOwnEndAtTheLatest) {
    { TVQOptional<SCounted> empty; }
    {
        TVQOptional<SCounted> optional;
        optional.construct(kInPlace);
    }
    {
        TVQOptional<SCounted> optional;
        optional.construct(kInPlace);
        optional.destroy();
    }
    EXPECT_EQ("1 2 ", SCounted::sLog);
}

TEST_F(TVQOptionalTest, TakesAnyFactory) {
    TVQOptional<int> optional;
    optional.reset(SFactory{42});
    EXPECT_EQ(42, *optional.get());
}

TEST_F(TVQOptionalTest, AlignsItsStorageAsAsked) {
    TVQOptional<char, 32u, 16u> optionals[3];
    for (auto& optional : optionals) {
        optional.construct(kInPlace);
        EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(optional.get()) % 16);
    }
}

TEST_F(TVQOptionalTest, TheFactoryBuildsNothingIntoNothing) {
    kInPlace.apply<SCounted>(nullptr);
    EXPECT_EQ(0, SCounted::sMade);
    alignas(SCounted) unsigned char storage[sizeof(SCounted)];
    kInPlace.apply<SCounted>(storage);
    EXPECT_EQ(1, SCounted::sMade);
    reinterpret_cast<SCounted*>(storage)->~SCounted();
}
