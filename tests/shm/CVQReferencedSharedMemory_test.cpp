// Concerns: the layout; the count through constructors, copies, streams, processes, pipes and channels; who creates
// and who unlinks; failed openings and what they leave; the sizes that are none; hostile streams; killed holders;
// descriptors.
#include <CVQReferencedSharedMemory.h>

#include <CVQByteStream.h>
#include <CVQSharedMemory.h>
#include <VQChannelAccess.h>

#include "Race.h"
#include "SharedName.h"
#include "file/Descriptors.h"
#include "support/AssertionLog.h"
#include "support/ChildProcess.h"
#include "support/VirtualSlot.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <sys/neutrino.h>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace {

using shmtest::SharedName;
using Texts = std::vector<std::string>;
using Segment = CVQReferencedSharedMemory;
using Handle = TVQRefCountPointer<CVQReferencedSharedMemory>;

constexpr unsigned kUnmappedSize = 4294967292U;

class CVQReferencedSharedMemoryTest : public testing::Test {
protected:
    ~CVQReferencedSharedMemoryTest() override { EXPECT_EQ(mDescriptors, files::openDescriptors()); }

    Texts couldNotOpen() const {
        return {"CVQReferencedSharedMemory:110", "Could not open referenced shared memory " + mName.text()};
    }

    SharedName mName;
    support::AssertionLog mLog;
    const std::set<int> mDescriptors = files::openDescriptors();
};

TEST_F(CVQReferencedSharedMemoryTest, TheSegmentIsTheCountAndTheData) {
    const Handle handle = Segment::create(mName, 100);
    ASSERT_FALSE(handle.isNull());
    EXPECT_EQ(104, mName.objectSize());
    EXPECT_EQ(100U, handle->getSize());
    std::memcpy(handle->getDataPtr(), "data", 5);
    CVQSharedMemory raw(mName, 104);
    raw.map(false, true, false);
    unsigned count = 0;
    std::memcpy(&count, raw.getAddress(), sizeof count);
    EXPECT_EQ(1U, count);
    EXPECT_STREQ("data", static_cast<char*>(raw.getAddress()) + 4);
}

TEST_F(CVQReferencedSharedMemoryTest, AnotherProcessCountsAndTheLastOneUnlinks) {
    Handle handle = Segment::create(mName, 100);
    const auto user = support::runInChild([&] {
        const Handle second(new Segment(mName, 100, false));
        EXPECT_EQ(2U, second->getSharedMemoryRefCount());
        EXPECT_EQ(2U, handle->getSharedMemoryRefCount());
    });
    EXPECT_TRUE(user.exitedWith(0)) << user;
    EXPECT_EQ(1U, handle->getSharedMemoryRefCount());
    EXPECT_TRUE(mName.exists());
    handle = nullptr;
    EXPECT_FALSE(mName.exists());
}

TEST_F(CVQReferencedSharedMemoryTest, TheCreatorMayLeaveFirst) {
    Handle first = Segment::create(mName, 100);
    std::memcpy(first->getDataPtr(), "stays", 6);
    Handle second(new Segment(mName, 100, false));
    first = nullptr;
    EXPECT_TRUE(mName.exists());
    EXPECT_EQ(1U, second->getSharedMemoryRefCount());
    EXPECT_STREQ("stays", static_cast<char*>(second->getDataPtr()));
    second = nullptr;
    EXPECT_FALSE(mName.exists());
}

TEST_F(CVQReferencedSharedMemoryTest, CopiesOfAHandleAreOneUser) {
    const Handle handle = Segment::create(mName, 100);
    const Handle copy = handle;
    EXPECT_EQ(2U, handle->getReferenceCount());
    EXPECT_EQ(1U, handle->getSharedMemoryRefCount());
}

TEST_F(CVQReferencedSharedMemoryTest, HandlesMayBeDroppedInAnyThread) {
    Handle handle = Segment::create(mName, 100);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([handle] {
            for (int round = 0; round < 1000; ++round) {
                const Handle copy = handle;
            }
        });
    }
    handle = nullptr;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(mName.exists());
}

TEST_F(CVQReferencedSharedMemoryTest, CreatingWhatIsThereFailsAndLeavesItAlone) {
    const Handle first = Segment::create(mName, 100);
    EXPECT_TRUE(Segment::create(mName, 100).isNull());
    EXPECT_EQ(Texts({"CVQReferencedSharedMemory:110", "Could not create shared memory " + mName.text(),
                     "CVQReferencedSharedMemory:90"}),
              mLog.takeSites());
    EXPECT_TRUE(mName.exists());
    EXPECT_EQ(1U, first->getSharedMemoryRefCount());
}

TEST_F(CVQReferencedSharedMemoryTest, OfManyProcessesThatCreateASegmentOneHasIt) {
    for (int round = 0; round < 15; ++round) {
        const auto codes = shmtest::race(10, [&] {
            // Never dropped: the segment must be there until the last one has tried.
            auto* const handle = new Handle(Segment::create(mName, 100));
            return handle->isNull() ? 0 : 1;
        });
        EXPECT_EQ(1, std::count(codes.begin(), codes.end(), 1));
        EXPECT_EQ(9, std::count(codes.begin(), codes.end(), 0));
        EXPECT_EQ(2U, Segment(mName, 100, false).getSharedMemoryRefCount());
        shm_unlink(mName);
    }
    mLog.takeSites();
}

TEST_F(CVQReferencedSharedMemoryTest, OpeningWhatIsNotThereFailsAndLeavesNothing) {
    {
        const Segment segment(mName, 100, false);
        EXPECT_EQ(nullptr, segment.getDataPtr());
        EXPECT_EQ(0U, segment.getSharedMemoryRefCount());
        EXPECT_EQ(couldNotOpen(), mLog.takeSites());
    }
    EXPECT_FALSE(mName.exists());
}

TEST_F(CVQReferencedSharedMemoryTest, Kept_TheSizeOfASegmentThatCouldNotBeMapped) {
    const Segment segment("/marlix/test", 100, false);
    EXPECT_EQ(kUnmappedSize, segment.getSize());
    EXPECT_EQ(nullptr, segment.getDataPtr());
    EXPECT_EQ(0U, segment.getSharedMemoryRefCount());
    EXPECT_EQ(Texts({"Unable to create file mapping handle named /marlix/test: Invalid argument",
                     "CVQReferencedSharedMemory:110", "Could not open referenced shared memory /marlix/test"}),
              mLog.takeSites());
}

TEST_F(CVQReferencedSharedMemoryTest, AnObjectThatIsTooSmallIsNotOpened) {
    for (const off_t size : {off_t{0}, off_t{kPage}}) {
        mName.make(size);
        const Segment segment(mName, kPage, false);
        EXPECT_EQ(nullptr, segment.getDataPtr());
        EXPECT_EQ(couldNotOpen(), mLog.takeSites());
    }
    EXPECT_TRUE(mName.exists());
    mName.make(50);
    const Segment inItsPage(mName, kPage - 4, false);
    EXPECT_NE(nullptr, inItsPage.getDataPtr());
}

TEST_F(CVQReferencedSharedMemoryTest, SizesThatLeaveNoRoomForTheCountAreRefused) {
    for (const unsigned size : {UINT_MAX, UINT_MAX - 2, UINT_MAX - 3}) {
        EXPECT_TRUE(Segment::create(mName, size).isNull());
        const Texts texts = mLog.takeSites();
        EXPECT_EQ("CVQReferencedSharedMemory:90", texts.back());
        EXPECT_FALSE(mName.exists());
    }
}

TEST_F(CVQReferencedSharedMemoryTest, ASizeOfZeroIsACountAlone) {
    const Handle handle = Segment::create(mName, 0);
    ASSERT_FALSE(handle.isNull());
    EXPECT_EQ(4, mName.objectSize());
    EXPECT_EQ(0U, handle->getSize());
}

TEST_F(CVQReferencedSharedMemoryTest, WithoutANameNothingIsMade) {
    EXPECT_TRUE(Segment::create(nullptr, 100).isNull());
    EXPECT_EQ(Texts({"CVQSharedMemory:43", "CVQSharedMemoryQNX:41", "CVQReferencedSharedMemory:110",
                     "Could not create shared memory (null)", "CVQReferencedSharedMemory:90"}),
              mLog.takeSites());
}

TEST_F(CVQReferencedSharedMemoryTest, AFileSystemThatIsFullLeavesNothingBehind) {
    const auto result = support::runInChild([&] {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit small = {kPage, kPage};
        setrlimit(RLIMIT_FSIZE, &small);
        EXPECT_TRUE(Segment::create(mName, 2 * kPage).isNull());
        EXPECT_FALSE(mName.exists());
        EXPECT_EQ(mDescriptors, files::openDescriptors());
    });
    mLog.takeSites();
    if (support::isEmulated() && !result.exitedWith(0)) {
        GTEST_SKIP() << "the emulator does not pass the limit on";
    }
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST_F(CVQReferencedSharedMemoryTest, AHandleTravelsAsNameAndSize) {
    const Handle handle = Segment::create(mName, 100);
    CVQByteStream stream;
    stream << handle;
    unsigned length = 0;
    unsigned size = 0;
    std::string name(mName.text().size(), '\0');
    const CVQByteStream& source = stream;
    source >> length;
    EXPECT_EQ(name.size(), length);
    EXPECT_EQ(name.size(), source.read(name.data(), name.size()));
    source >> size;
    EXPECT_EQ(mName.text(), name);
    EXPECT_EQ(100U, size);
    EXPECT_EQ(length + 8, stream.getLength());
    EXPECT_EQ(2U, handle->getSharedMemoryRefCount());
    Handle taken;
    CVQByteStream again;
    again << length;
    again.write(name.data(), length);
    again << size;
    again >> taken;
    EXPECT_EQ(2U, handle->getSharedMemoryRefCount());
}

TEST_F(CVQReferencedSharedMemoryTest, AHandleUnderWayKeepsTheSegment) {
    Handle sender = Segment::create(mName, 100);
    std::memcpy(sender->getDataPtr(), "letter", 7);
    CVQByteStream stream;
    stream << sender;
    sender = nullptr;
    EXPECT_TRUE(mName.exists());
    Handle receiver;
    stream >> receiver;
    ASSERT_FALSE(receiver.isNull());
    EXPECT_EQ(1U, receiver->getSharedMemoryRefCount());
    EXPECT_EQ(100U, receiver->getSize());
    EXPECT_STREQ("letter", static_cast<char*>(receiver->getDataPtr()));
    receiver = nullptr;
    EXPECT_FALSE(mName.exists());
}

TEST_F(CVQReferencedSharedMemoryTest, AHandleGoesThroughAPipeToAnotherProcess) {
    int forth[2];
    int back[2];
    ASSERT_EQ(0, pipe2(forth, O_CLOEXEC));
    ASSERT_EQ(0, pipe2(back, O_CLOEXEC));
    const auto tell = [&] { EXPECT_EQ(1, write(back[1], "", 1)); };
    support::ChildProcess receiver([&] {
        char bytes[1024];
        const ssize_t count = read(forth[0], bytes, sizeof bytes);
        ASSERT_GT(count, 0);
        CVQByteStream stream;
        stream.write(bytes, static_cast<std::size_t>(count));
        Handle handle;
        stream >> handle;
        ASSERT_FALSE(handle.isNull());
        EXPECT_STREQ("hello", static_cast<char*>(handle->getDataPtr()));
        EXPECT_EQ(2U, handle->getSharedMemoryRefCount());
        tell();
        EXPECT_EQ(1, read(forth[0], bytes, 1));
    });
    Handle handle = Segment::create(mName, 100);
    std::memcpy(handle->getDataPtr(), "hello", 6);
    CVQByteStream stream;
    stream << handle;
    EXPECT_EQ(2U, handle->getSharedMemoryRefCount());
    std::vector<char> bytes(stream.getLength());
    stream.read(bytes.data(), bytes.size());
    EXPECT_EQ(static_cast<ssize_t>(bytes.size()), write(forth[1], bytes.data(), bytes.size()));
    char byte;
    EXPECT_EQ(1, read(back[0], &byte, 1));
    EXPECT_EQ(2U, handle->getSharedMemoryRefCount());  // one more than before, while the receiver holds it
    EXPECT_EQ(1, write(forth[1], "", 1));
    const auto result = receiver.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(1U, handle->getSharedMemoryRefCount());
    handle = nullptr;
    EXPECT_FALSE(mName.exists());
    for (const int descriptor : {forth[0], forth[1], back[0], back[1]}) {
        close(descriptor);
    }
}

TEST_F(CVQReferencedSharedMemoryTest, AHandleGoesThroughAChannelToAnotherProcess) {
    constexpr int kTimeoutMs = 5000;
    int told[2];
    ASSERT_EQ(0, pipe2(told, O_CLOEXEC));
    support::ChildProcess receiver([&] {
        const int channel = ChannelCreate(0);
        ASSERT_NE(-1, channel);
        ASSERT_EQ(static_cast<ssize_t>(sizeof channel), write(told[1], &channel, sizeof channel));
        char bytes[1024];
        _msg_info info;
        const int letter = VQChannelAccess::receive(channel, bytes, sizeof bytes, kTimeoutMs, &info);
        ASSERT_GT(letter, 0);
        CVQByteStream stream;
        stream.write(bytes, static_cast<unsigned>(info.msglen));
        Handle handle;
        stream >> handle;
        ASSERT_FALSE(handle.isNull());
        EXPECT_STREQ("hello", static_cast<char*>(handle->getDataPtr()));
        EXPECT_EQ(2U, handle->getSharedMemoryRefCount());
        EXPECT_EQ(0, MsgReply(letter, EOK, nullptr, 0));
        const int end = VQChannelAccess::receive(channel, bytes, sizeof bytes, kTimeoutMs, &info);
        handle = nullptr;
        EXPECT_EQ(0, MsgReply(end, EOK, nullptr, 0));
    });
    // In a process of its own, too: what channels need is open as long as their process lives.
    const auto sender = support::runInChild([&] {
        int channel = -1;
        ASSERT_EQ(static_cast<ssize_t>(sizeof channel), read(told[0], &channel, sizeof channel));
        int connection = -1;
        ASSERT_TRUE(VQChannelAccess::attach(connection, channel, receiver.pid(), 0));
        Handle handle = Segment::create(mName, 100);
        std::memcpy(handle->getDataPtr(), "hello", 6);
        CVQByteStream stream;
        stream << handle;
        const auto size = static_cast<int>(stream.getLength());
        EXPECT_EQ(EOK, VQChannelAccess::send(connection, stream.getData(), size, nullptr, 0));
        EXPECT_EQ(2U, handle->getSharedMemoryRefCount());  // one more than before, while the receiver holds it
        EXPECT_EQ(EOK, VQChannelAccess::send(connection, "end", 3, nullptr, 0));
        EXPECT_EQ(1U, handle->getSharedMemoryRefCount());
    });
    EXPECT_TRUE(sender.exitedWith(0)) << sender;
    const auto result = receiver.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_FALSE(mName.exists());
    close(told[0]);
    close(told[1]);
}

TEST_F(CVQReferencedSharedMemoryTest, AStreamThatEndsEarlyGivesAnEmptyPointer) {
    const Handle handle = Segment::create(mName, 100);
    CVQByteStream whole;
    whole << handle;
    std::vector<char> bytes(whole.getLength());
    whole.read(bytes.data(), bytes.size());
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        CVQByteStream part;
        part.write(bytes.data(), length);
        Handle read = handle;
        part >> read;
        EXPECT_TRUE(read.isNull()) << length;
        EXPECT_EQ(2U, handle->getSharedMemoryRefCount());
    }
    CVQByteStream last;
    last.write(bytes.data(), bytes.size());
    Handle read;
    last >> read;
    EXPECT_FALSE(read.isNull());
}

TEST_F(CVQReferencedSharedMemoryTest, AnEmptyPointerTravelsAsOne) {
    CVQByteStream stream;
    stream << Handle();
    Handle handle = Segment::create(mName, 100);
    stream >> handle;
    EXPECT_TRUE(handle.isNull());
    EXPECT_FALSE(mName.exists());
}

TEST_F(CVQReferencedSharedMemoryTest, NamesThatNoSegmentHasAreRefused) {
    for (const unsigned length : {5000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        CVQByteStream stream;
        stream << length;
        const std::string bytes(6000, 'x');
        stream.write(bytes.data(), bytes.size());
        Handle handle;
        stream >> handle;
        EXPECT_TRUE(handle.isNull());
    }
}

TEST_F(CVQReferencedSharedMemoryTest, AHandleOfASegmentThatIsGoneArrivesWithoutData) {
    Handle handle = Segment::create(mName, 100);
    CVQByteStream stream;
    stream << handle;
    shm_unlink(mName);
    handle = nullptr;
    Handle read;
    stream >> read;
    ASSERT_FALSE(read.isNull());
    EXPECT_EQ(nullptr, read->getDataPtr());
    EXPECT_EQ(0U, read->getSharedMemoryRefCount());
    EXPECT_EQ(couldNotOpen(), mLog.takeSites());
    EXPECT_FALSE(mName.exists());
    CVQByteStream forwarded;  // and can be sent on as what it is
    forwarded << read;
    EXPECT_EQ(mName.text().size() + 8, forwarded.getLength());
}

TEST_F(CVQReferencedSharedMemoryTest, AHolderThatIsKilledLeavesTheSegmentBehind) {
    Handle handle = Segment::create(mName, 100);
    support::ChildProcess holder([&] {
        const Handle second(new Segment(mName, 100, false));
        raise(SIGKILL);
    });
    EXPECT_TRUE(holder.finish().killedBy(SIGKILL));
    EXPECT_EQ(2U, handle->getSharedMemoryRefCount());
    handle = nullptr;
    EXPECT_TRUE(mName.exists());
}

TEST_F(CVQReferencedSharedMemoryTest, ManyProcessesOpenAndLeave) {
    Handle handle = Segment::create(mName, 100);
    std::vector<std::unique_ptr<support::ChildProcess>> users;
    for (int i = 0; i < 4; ++i) {
        users.push_back(std::make_unique<support::ChildProcess>([&] {
            for (int round = 0; round < 300; ++round) {
                const Handle own(new Segment(mName, 100, false));
                ASSERT_NE(nullptr, own->getDataPtr());
            }
        }));
    }
    for (const auto& user : users) {
        const auto result = user->finish();
        EXPECT_TRUE(result.exitedWith(0)) << result;
    }
    EXPECT_EQ(1U, handle->getSharedMemoryRefCount());
    handle = nullptr;
    EXPECT_FALSE(mName.exists());
}

class Derived : public Segment {
public:
    using Segment::Segment;
};

TEST_F(CVQReferencedSharedMemoryTest, MayBeDerivedFromWithTypeInformation) {
    const Handle handle(new Derived(mName, 100, true));
    EXPECT_NE(nullptr, dynamic_cast<const Derived*>(handle.get()));
    EXPECT_EQ(2, support::slotOf(&Segment::lastReferenceRemoved));
}

}  // namespace
