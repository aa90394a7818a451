#include <orvo_common/failure.hpp>
#include <orvo_common/run_control.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <new>
#include <system_error>
#include <thread>

using namespace orvo;
using details::CallScope;
using details::StatementScope;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const Failure kDamaged{FailureKind::UnreadableFile, "a.jpg", "it is damaged"};
const Failure kMissing{FailureKind::UnreadableFile, "b.jpg", "there is no such file"};

template <typename Exception>
Failure failureOf(const Exception& exception)
{
    try {
        throw exception;
    } catch (...) {
        return failureOfException();
    }
}

void callThatStates(const Failure& failure)
{
    const CallScope scope;
    details::stateFailure(failure);
}

} // namespace

TEST(LastFailure, IsWhatTheCallHasStated)
{
    callThatStates(kDamaged);
    EXPECT_EQ(lastFailure(), kDamaged);
}

TEST(LastFailure, IsClearedWhenACallBegins)
{
    callThatStates(kDamaged);
    const CallScope next;
    EXPECT_EQ(lastFailure(), std::nullopt);
}

TEST(LastFailure, IsEmptyAfterACallThatStatedNothing)
{
    callThatStates(kDamaged);
    {
        const CallScope next;
    }
    EXPECT_EQ(lastFailure(), std::nullopt);
}

TEST(LastFailure, BelongsToItsThread)
{
    callThatStates(kDamaged);
    std::thread([] {
        EXPECT_EQ(lastFailure(), std::nullopt);
        callThatStates(kMissing);
        EXPECT_EQ(lastFailure(), kMissing);
    }).join();
    EXPECT_EQ(lastFailure(), kDamaged);
}

TEST(LastFailure, TheFirstStatementStandsButACancelExplainsAll)
{
    {
        const CallScope scope;
        details::stateFailure(kDamaged);
        details::stateFailure(kMissing);
    }
    EXPECT_EQ(lastFailure(), kDamaged);
    {
        const CallScope scope;
        details::stateFailure(kDamaged);
        details::stateFailure(cancelledFailure());
        details::stateFailure(kMissing);
    }
    EXPECT_EQ(lastFailure(), cancelledFailure());
}

TEST(LastFailure, AnExceptionReplacesWhatWasStated)
{
    {
        CallScope scope;
        details::stateFailure(kDamaged);
        scope.fail({FailureKind::OutOfMemory, {}, {}});
    }
    EXPECT_EQ(lastFailure()->kind, FailureKind::OutOfMemory);
}

TEST(LastFailure, OfAnInnerCallIsTheOuterOnesOnlyIfItSaysSo)
{
    {
        const CallScope outer;
        callThatStates(kDamaged);
        EXPECT_EQ(lastFailure(), kDamaged);
    }
    EXPECT_EQ(lastFailure(), std::nullopt) << "it went on without";
    {
        const CallScope outer;
        callThatStates(kDamaged);
        details::stateLastFailure(kMissing);
    }
    EXPECT_EQ(lastFailure(), kDamaged);
    {
        const CallScope outer;
        details::stateFailure(kMissing);
        callThatStates(kDamaged);
    }
    EXPECT_EQ(lastFailure(), kMissing) << "an inner call does not clear it";
}

TEST(LastFailure, AnInnerCallWithoutAReasonGetsOne)
{
    {
        const CallScope outer;
        {
            const CallScope inner;
        }
        details::stateLastFailure(kMissing);
    }
    EXPECT_EQ(lastFailure(), kMissing);
}

TEST(LastFailure, HasASentenceForMissingMemory)
{
    callThatStates({FailureKind::OutOfMemory, "a.jpg", {}});
    EXPECT_EQ(describe(*lastFailure()), "a.jpg: there is not enough memory for pictures of this size");
}

TEST(LastWarnings, ReachTheOuterCallInTheirOrderEachOnce)
{
    {
        const CallScope outer;
        details::keepWarning("one");
        {
            const CallScope inner;
            details::keepWarning("two");
            details::keepWarning("one");
        }
        EXPECT_THAT(lastWarnings(), ElementsAre("two", "one"));
    }
    EXPECT_THAT(lastWarnings(), ElementsAre("one", "two"));
    {
        const CallScope next;
    }
    EXPECT_THAT(lastWarnings(), IsEmpty());
}

TEST(LastWarnings, OutsideOfACallAreNobodys)
{
    details::keepWarning("stray");
    details::stateFailure(kDamaged);
    {
        const CallScope call;
    }
    EXPECT_THAT(lastWarnings(), IsEmpty());
    EXPECT_EQ(lastFailure(), std::nullopt);
}

TEST(StatementScope, CollectsAndPutsBack)
{
    const CallScope call;
    details::stateFailure(kMissing);
    details::Statements part;
    {
        StatementScope scope;
        details::stateFailure(kDamaged);
        details::keepWarning("dark");
        part = scope.take();
    }
    EXPECT_EQ(part.failure, kDamaged);
    EXPECT_THAT(part.warnings, ElementsAre("dark"));
    try {
        details::throwStatedFailure();
    } catch (const FailureError& error) {
        EXPECT_EQ(error.failure(), kMissing);
    }
}

TEST(KeepingFailure, LetsTheExceptionOut)
{
    EXPECT_THROW(details::keepingFailure([]() -> int { throw FailureError(kDamaged); }), FailureError);
    EXPECT_EQ(lastFailure(), kDamaged);
    EXPECT_EQ(details::keepingFailure([] { return 7; }), 7);
    EXPECT_EQ(lastFailure(), std::nullopt);
}

TEST(FailureError, SaysFileAndSentenceInOneLine)
{
    const FailureError error({FailureKind::Internal, "a.jpg", "OpenCV failed:\nno luck.\n"});
    EXPECT_STREQ(error.what(), "a.jpg: OpenCV failed: no luck");
    EXPECT_EQ(error.failure().sentence, "OpenCV failed: no luck");
    EXPECT_STREQ(FailureError({FailureKind::Internal, {}, "no luck"}).what(), "no luck");
}

TEST(FailureOfException, KnowsTheKinds)
{
    EXPECT_EQ(failureOf(FailureError(kDamaged)), kDamaged);
    EXPECT_EQ(failureOf(std::bad_alloc()).kind, FailureKind::OutOfMemory);
    EXPECT_EQ(failureOf(std::bad_array_new_length()).kind, FailureKind::OutOfMemory);
    EXPECT_EQ(failureOf(std::system_error(ENOSPC, std::generic_category())).kind, FailureKind::FullDisk);
    EXPECT_EQ(failureOf(std::system_error(EDQUOT, std::generic_category())).kind, FailureKind::FullDisk);
    EXPECT_EQ(failureOf(std::system_error(EACCES, std::generic_category())).kind, FailureKind::Internal);
    const std::filesystem::filesystem_error full("copy", "a.jpg", std::error_code(ENOSPC, std::generic_category()));
    EXPECT_EQ(failureOf(full).kind, FailureKind::FullDisk);
    EXPECT_EQ(failureOf(full).file, "a.jpg");
    EXPECT_EQ(failureOf(std::runtime_error("why")), (Failure{FailureKind::Internal, {}, "why"}));
    EXPECT_EQ(failureOf(7).kind, FailureKind::Internal);
    EXPECT_FALSE(failureOf(7).sentence.empty());
}

TEST(RunControl, AsksAndReports)
{
    bool stop = false;
    float reported = 0.0f;
    const RunControl run([&] { return stop; }, [&](float share) { reported = share; });
    EXPECT_FALSE(run.cancelled());
    EXPECT_NO_THROW(run.throwIfCancelled());
    run.report(0.5f);
    EXPECT_EQ(reported, 0.5f);
    stop = true;
    EXPECT_FALSE(run.wasCancelled()) << "nobody has asked yet";
    EXPECT_TRUE(run.cancelled());
    EXPECT_TRUE(run.wasCancelled());
    try {
        run.throwIfCancelled();
        FAIL();
    } catch (const FailureError& error) {
        EXPECT_EQ(error.failure(), cancelledFailure());
    }
}

TEST(RunControl, OfNothingGoesOn)
{
    EXPECT_FALSE(RunControl().cancelled());
    EXPECT_FALSE(RunControl(static_cast<const std::atomic<bool>*>(nullptr)).cancelled());
    EXPECT_FALSE(RunControl(std::function<bool()>()).cancelled());
    RunControl::none().report(1.0f);
    std::atomic<bool> flag = false;
    const RunControl run(&flag);
    EXPECT_FALSE(run.cancelled());
    flag = true;
    EXPECT_TRUE(run.cancelled());
}
