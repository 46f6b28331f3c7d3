// The Qt main thread port: real timers and queued calls on a real event loop.
#include <QCoreApplication>
#include <QElapsedTimer>
#include <thread>

#include <gtest/gtest.h>

#include "ui/QtPorts.h"

namespace qv::test {
namespace {

// Runs the event loop until `done`, or two seconds pass when it never comes.
bool spin(const std::function<bool()>& done) {
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < 2000) QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    return done();
}

TEST(QtMainThread, PostsFromWorkersRunOnTheMainThreadInOrder) {
    int argc = 1;
    char name[] = "test";
    char* argv[] = {name, nullptr};
    QCoreApplication app(argc, argv);
    ui::QtMainThread main;
    const auto mainId = std::this_thread::get_id();
    std::vector<int> order;
    bool onMain = true;
    std::thread worker([&] {
        for (int i = 0; i < 100; ++i)
            main.post([&, i] {
                onMain = onMain && std::this_thread::get_id() == mainId;
                order.push_back(i);
            });
    });
    worker.join();
    ASSERT_TRUE(spin([&] { return order.size() == 100; }));
    EXPECT_TRUE(onMain);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));

    // Timers: a cancelled one never runs, even when cancelled by another
    // timer's action; an action may schedule again.
    std::vector<std::string> ran;
    auto late = main.schedule(0.05, [&] { ran.push_back("late"); });
    main.schedule(0.01, [&] {
        ran.push_back("first");
        main.cancel(late);
        main.schedule(0.02, [&] { ran.push_back("again"); });
    });
    auto never = main.schedule(0.01, [&] { ran.push_back("never"); });
    main.cancel(never);
    main.cancel(9999);
    // A last timer, due after all the others: once it has run, whatever
    // else was to come has come.
    main.schedule(0.2, [&] { ran.push_back("last"); });
    ASSERT_TRUE(spin([&] { return !ran.empty() && ran.back() == "last"; }));
    EXPECT_EQ(ran, (std::vector<std::string>{"first", "again", "last"}));
}

}  // namespace
}  // namespace qv::test
