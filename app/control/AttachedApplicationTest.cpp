// An interface attached to an application over the control socket: the copy of
// its sessions, decisions for exactly the session shown, and the application
// going away and coming back.
#include "control/AttachedApplication.h"

#include "control/ControlTestSupport.h"
#include "service/ServiceTestSupport.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

using Connection = ApplicationView::Connection;
using testing::eventually;
using testing::FakeTarget;
using testing::heldRequest;
using testing::sessionWith;

/// What one watcher of the attached view was told, in order.
class Told {
public:
    ApplicationView::Watcher watcher() {
        return {
            .changed = [this](const StoreChange& change) { add("change " + change.key.sessionId); },
            .alerted = [this](const Alert& alert) { add("alert " + alert.title); },
            .connection =
                [this](Connection connection, const std::string& sentence) {
                    add((connection == Connection::lost ? "lost: " : "restored: ") + sentence);
                },
        };
    }
    std::vector<std::string> all() {
        std::lock_guard guard(lock_);
        return items_;
    }
    bool has(const std::string& item) {
        return eventually([&] {
            auto items = all();
            return std::find(items.begin(), items.end(), item) != items.end();
        });
    }

private:
    void add(std::string item) {
        std::lock_guard guard(lock_);
        items_.push_back(std::move(item));
    }
    std::mutex lock_;
    std::vector<std::string> items_;
};

class AttachedApplicationTest : public ::testing::Test {
protected:
    AttachedApplicationTest() {
        target.all = {
            sessionWith(AgentKind::claude, "s-1", {heldRequest(PendingKind::permission, "Run ls")}),
            sessionWith(AgentKind::claude, "s-10",
                        {heldRequest(PendingKind::permission, "Run rm")}),
        };
    }

    std::vector<std::string> sessionIds(const ApplicationView& view) {
        std::vector<std::string> ids;
        for (const Session& session : view.sessions())
            ids.push_back(session.key.sessionId);
        std::sort(ids.begin(), ids.end());
        return ids;
    }

    FakeTarget target;
    testing::RunningServer running{target};
    const TidewickPaths& paths = running.paths;
    std::optional<ControlServer>& server = running.server;
};

TEST_F(AttachedApplicationTest, FollowsTheSessionsAndDecidesForExactlyTheSessionShown) {
    AttachedApplication view(paths);
    ASSERT_TRUE(view.attach());
    EXPECT_EQ(sessionIds(view), (std::vector<std::string>{"s-1", "s-10"}));
    EXPECT_EQ(view.pendingRequests().size(), 2u);
    Told told;
    const ApplicationView::Watch watch = view.watch(told.watcher());
    EXPECT_EQ(watch.sessions.size(), 2u);

    // A change, then the alert about it, in that order.
    Session third = sessionWith(AgentKind::codex, "s-2", {heldRequest(PendingKind::reply, "Done")});
    target.change(third);
    target.alert({Alert::Kind::waitingReply, third.key, "Done", {}, third.pending[0].id});
    ASSERT_TRUE(told.has("alert Done"));
    EXPECT_EQ(told.all(), (std::vector<std::string>{"change s-2", "alert Done"}));
    EXPECT_EQ(sessionIds(view), (std::vector<std::string>{"s-1", "s-10", "s-2"}));

    // "s-1" is a prefix of "s-10" too, yet the whole key names one session; the first
    // decision wins here as anywhere.
    EXPECT_TRUE(view.answerPermission({AgentKind::claude, "s-1"}, SessionActions::Answer::allow));
    EXPECT_FALSE(view.answerPermission({AgentKind::claude, "s-1"}, SessionActions::Answer::deny));
    EXPECT_TRUE(view.reply({AgentKind::codex, "s-2"}, "Run the tests."));
    EXPECT_FALSE(view.letStop({AgentKind::cursor, "s-2"})) << "no such session: never handed on";
    view.setTranscriptStep({AgentKind::claude, "s-10"}, 4096);
    const auto calls = target.calls();
    ASSERT_EQ(calls.size(), 4u);
    EXPECT_EQ(calls[0].key, (SessionKey{AgentKind::claude, "s-1"}));
    EXPECT_EQ(calls[2].text, "Run the tests.");
    EXPECT_EQ(std::tie(calls[3].what, calls[3].key.sessionId, calls[3].text),
              std::make_tuple("transcriptStep", "s-10", std::optional<std::string>("4096")));

    view.unwatch(watch.id);
    target.change(sessionWith(AgentKind::codex, "s-3"));
    ASSERT_TRUE(eventually([&] { return sessionIds(view).size() == 4; }));
    EXPECT_EQ(told.all().size(), 2u) << "nothing told after unwatch";
}

TEST_F(AttachedApplicationTest, SaysWhenTheApplicationGoesAndAttachesAgainWhenItIsBack) {
    AttachedApplication view(paths, {.reattachSeconds = 0.05});
    ASSERT_TRUE(view.attach());
    Told told;
    (void)view.watch(told.watcher());

    server->stop();
    ASSERT_TRUE(told.has(std::string("lost: ") + AttachedApplication::lostSentence));
    EXPECT_TRUE(view.sessions().empty()) << "nothing of a gone application can be answered";
    EXPECT_FALSE(view.answerPermission({AgentKind::claude, "s-10"}, SessionActions::Answer::allow));
    AttachedApplication late(paths);
    EXPECT_FALSE(late.attach()) << "nothing to attach to";
    EXPECT_TRUE(late.sessions().empty());

    target.all.pop_back();
    server->start();
    ASSERT_TRUE(told.has(std::string("restored: ") + AttachedApplication::restoredSentence));
    EXPECT_EQ(sessionIds(view), (std::vector<std::string>{"s-1"}));
    // Each session was told removed when the application went, and back when it returned.
    const auto all = told.all();
    EXPECT_EQ(std::count(all.begin(), all.end(), "change s-1"), 2);
    EXPECT_EQ(std::count(all.begin(), all.end(), "change s-10"), 1);
    EXPECT_EQ(std::count_if(all.begin(), all.end(),
                            [](const std::string& item) { return item.starts_with("lost"); }),
              1)
        << "said once, however long it is away";
}

} // namespace
} // namespace tidewick
