#include <orvo/operation_queue.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using ::testing::ElementsAre;

std::shared_ptr<opq::Operation> calling(std::function<void()> function, std::string name = {})
{
    return std::make_shared<opq::FunctionOperation>(function, std::move(name));
}

// Keeps the worker busy until opened, so that later operations wait.
class Gate
{
public:
    explicit Gate(opq::OperationQueue& queue)
    {
        auto entered = std::make_shared<std::promise<void>>(); // the worker may hold it longer than the gate lives
        auto inside = entered->get_future();
        queue.addOperation(calling([entered, passable = opened.get_future().share()] {
            entered->set_value();
            passable.wait();
        }));
        inside.wait();
    }
    void open() { opened.set_value(); }

private:
    std::promise<void> opened;
};

TEST(OperationQueue, RunsInTheOrderOfAdditionOnOneThreadOfItsOwn)
{
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    {
        opq::OperationQueue queue;
        for (int i = 0; i < 100; ++i)
            queue.addOperation(calling([&, i] {
                order.push_back(i);
                threads.push_back(std::this_thread::get_id());
            }));
    }
    ASSERT_EQ(order.size(), 100u);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
    EXPECT_NE(threads.front(), std::this_thread::get_id());
    EXPECT_EQ(std::count(threads.begin(), threads.end(), threads.front()), 100);
}

TEST(OperationQueue, LeavesOutWhatIsCancelledWhileItWaits)
{
    std::vector<int> order;
    {
        opq::OperationQueue queue;
        Gate gate(queue);
        const auto first = calling([&] { order.push_back(1); });
        const auto second = calling([&] { order.push_back(2); });
        const auto config = std::make_shared<opq::ConfigOperation>([&] { order.push_back(3); });
        queue.addOperation(first);
        queue.addOperation(second);
        queue.addOperation(config);
        first->cancel();
        config->cancel();
        gate.open();
    }
    EXPECT_THAT(order, ElementsAre(2, 3));
}

TEST(OperationQueue, CancelOfTheRunningOperationInterruptsNothing)
{
    std::promise<void> entered;
    std::promise<void> go;
    bool hasEnded = false;
    const auto operation = calling([&] {
        entered.set_value();
        go.get_future().wait();
        hasEnded = true;
    });
    {
        opq::OperationQueue queue;
        queue.addOperation(operation);
        entered.get_future().wait();
        operation->cancel();
        go.set_value();
    }
    EXPECT_TRUE(hasEnded);
    EXPECT_TRUE(operation->isCanceled());
}

TEST(OperationQueue, DestructorFinishesWhatItHolds)
{
    int calls = 0;
    {
        opq::OperationQueue queue;
        Gate gate(queue);
        for (int i = 0; i < 10; ++i)
            queue.addOperation(calling([&] { ++calls; }));
        gate.open();
    }
    EXPECT_EQ(calls, 10);
}

TEST(OperationQueue, ShutDownDropsWhatWaitsAndWaitsForWhatRuns)
{
    std::atomic<bool> hasEnded = false;
    std::atomic<int> calls = 0;
    std::promise<void> entered;
    opq::OperationQueue queue;
    EXPECT_FALSE(queue.closed());
    queue.addOperation(calling([&] {
        entered.set_value();
        while (!queue.closed())
            std::this_thread::yield();
        hasEnded = true;
    }));
    entered.get_future().wait();
    const auto held = std::make_shared<int>(0);
    for (int i = 0; i < 10; ++i)
        queue.addOperation(calling([&calls, held] { ++calls; }));
    queue.shutDown();
    EXPECT_TRUE(hasEnded);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_TRUE(queue.closed());
    queue.addOperation(calling([&calls, held] { ++calls; }));
    EXPECT_EQ(held.use_count(), 1);
    queue.shutDown();
    EXPECT_EQ(calls, 0);
}

TEST(OperationQueue, AnExceptionIsLoggedAndTheWorkerGoesOn)
{
    const orvo::LogCapture log;
    int calls = 0;
    {
        opq::OperationQueue queue;
        queue.addOperation(calling([] { throw std::runtime_error("no disk"); }, "load"));
        queue.addOperation(calling([] { throw 7; }));
        queue.addOperation(calling({}));
        queue.addOperation(calling([&] { ++calls; }));
    }
    {
        opq::OperationQueue delivery(opq::OperationQueue::Type::Delivery);
        delivery.addOperation(calling([] { throw std::runtime_error("receiver"); }));
    }
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(log.texts(orvo::LogMessageType::Error),
                ElementsAre("Exception in an operation load: no disk",
                            "Exception in an operation: not a std::exception",
                            "Exception in an operation: " + std::string(std::bad_function_call().what()),
                            "Exception in a delivery: receiver"));
}

TEST(OperationQueue, AnOperationMayAddAndAskAndShutDown)
{
    std::promise<bool> answer;
    opq::OperationQueue queue;
    std::atomic<int> calls = 0;
    queue.addOperation(calling([&] {
        queue.addOperation(calling([&] {
            queue.addOperation(calling([&] { ++calls; }));
            queue.shutDown();
            answer.set_value(queue.closed());
        }));
    }));
    EXPECT_TRUE(answer.get_future().get());
    queue.shutDown();
    EXPECT_EQ(calls, 0);
}

TEST(OperationQueue, AnOperationMayDropTheLastReference)
{
    std::vector<int> order;
    std::promise<void> done;
    auto queue = std::make_shared<opq::OperationQueue>();
    std::promise<void> go;
    queue->addOperation(calling([&, held = queue]() mutable {
        go.get_future().wait();
        order.push_back(1);
        held.reset();
        order.push_back(3);
        done.set_value();
    }));
    queue->addOperation(calling([&] { order.push_back(2); }));
    queue.reset();
    go.set_value();
    done.get_future().wait();
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

struct Owner
{
    opq::OperationQueue queue;
};

TEST(OperationQueue, AWaitingOperationMayHoldTheLastReference)
{
    auto owner = std::make_shared<Owner>();
    const std::weak_ptr<Owner> watched = owner;
    Gate gate(owner->queue);
    owner->queue.addOperation(calling([owner] {}));
    owner.reset();
    EXPECT_FALSE(watched.expired());
    gate.open();
    for (int i = 0; i < 5000 && !watched.expired(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_TRUE(watched.expired());
}

TEST(OperationQueue, ShutDownMayDropTheLastReference)
{
    auto owner = std::make_shared<Owner>();
    const std::weak_ptr<Owner> watched = owner;
    std::promise<void> entered;
    owner->queue.addOperation(calling([&entered, watched] {
        entered.set_value();
        while (!watched.expired())
            std::this_thread::yield();
    }));
    entered.get_future().wait();
    owner->queue.addOperation(calling([owner] {}));
    opq::OperationQueue& queue = owner->queue;
    owner.reset();
    queue.shutDown();
    EXPECT_TRUE(watched.expired());
}

TEST(OperationQueue, SeveralThreadsMayAddAndShutDown)
{
    for (int round = 0; round < 200; ++round) {
        std::atomic<int> calls = 0;
        opq::OperationQueue queue;
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i)
            threads.emplace_back([&] {
                for (int k = 0; k < 5; ++k)
                    queue.addOperation(calling([&] { ++calls; }));
                queue.shutDown();
                EXPECT_TRUE(queue.closed());
            });
        for (auto& thread : threads)
            thread.join();
        EXPECT_LE(calls, 15);
    }
}

} // namespace
