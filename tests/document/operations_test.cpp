#include <orvo_extensions/operations.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

namespace {

// The values of protected fields after construction.
struct OpenFunctionOperation : opq::FunctionOperation
{
    using FunctionOperation::FunctionOperation;
    using Operation::priority;
};

TEST(Operation, StartsUncancelledWithTheNameGiven)
{
    OpenFunctionOperation operation([] {}, "load");
    EXPECT_FALSE(operation.isCanceled());
    EXPECT_EQ(operation.getIdentifier(), "load");
    EXPECT_EQ(operation.priority, 1);
    operation.setIdentifier("finalize");
    EXPECT_EQ(operation.getIdentifier(), "finalize");
}

TEST(FunctionOperation, CallsItsFunction)
{
    int calls = 0;
    opq::FunctionOperation operation([&] { ++calls; }, "");
    operation.execute();
    EXPECT_EQ(calls, 1);
    opq::RenderOperation render([&] { calls += 10; }, "");
    render.execute();
    EXPECT_EQ(calls, 11);
}

TEST(FunctionOperation, CancelDuringExecutionLetsItEndAndShows)
{
    bool hasEnded = false;
    std::function<void()> body;
    opq::FunctionOperation operation([&] { body(); }, "");
    body = [&] {
        operation.cancel();
        hasEnded = true;
    };
    operation.execute();
    EXPECT_TRUE(hasEnded);
    EXPECT_TRUE(operation.isCanceled());
}

TEST(RenderOperation, CanBeCancelled)
{
    opq::RenderOperation render([] {}, "render");
    EXPECT_FALSE(render.isCanceled());
    render.cancel();
    EXPECT_TRUE(render.isCanceled());
    EXPECT_EQ(render.getIdentifier(), "render");
}

TEST(ConfigOperation, CannotBeCancelled)
{
    int calls = 0;
    opq::ConfigOperation operation([&] { ++calls; });
    operation.cancel();
    EXPECT_FALSE(operation.isCanceled());
    operation.execute();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(operation.getIdentifier(), "");
}

TEST(ConfigOperation, AnEmptyFunctionRaises)
{
    opq::ConfigOperation operation{std::function<void()>()};
    EXPECT_THROW(operation.execute(), std::bad_function_call);
}

TEST(Operations, AreDestroyedThroughTheirBase)
{
    const auto held = std::make_shared<int>(1);
    std::unique_ptr<opq::Operation> operation = std::make_unique<opq::FunctionOperation>([held] {}, "");
    EXPECT_EQ(held.use_count(), 2);
    operation.reset();
    EXPECT_EQ(held.use_count(), 1);
}

} // namespace
