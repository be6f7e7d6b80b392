#include "Alerts.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

Alert alert(Alert::Kind kind) {
    Alert alert;
    alert.kind = kind;
    alert.session = {AgentKind::cursor, "c1"};
    alert.title = kind == Alert::Kind::finished ? "Finished" : "Run sudo make install";
    alert.detail = "sudo make install\n\nInstall it";
    if (kind != Alert::Kind::finished)
        alert.requestId = UUID::random();
    alert.turnEnded = kind != Alert::Kind::needsPermission;
    return alert;
}

TEST(Alerts, HeldRequestsRingGlowAndNotifyAsTheSettingsSay) {
    TidewickSettings settings;
    const Alert asks = alert(Alert::Kind::needsPermission);
    AlertEffects all = alertEffects(asks, settings);
    EXPECT_TRUE(all.bell);
    EXPECT_TRUE(all.glow);
    ASSERT_TRUE(all.notification);
    EXPECT_EQ(all.notification->summary, "Cursor needs permission");
    EXPECT_EQ(all.notification->body,
              "Run sudo make install\nsudo make install\n\nInstall it\n⚠ runs with admin rights");
    EXPECT_TRUE(all.notification->offersAnswers);
    EXPECT_EQ(all.notification->requestId, asks.requestId);
    EXPECT_EQ(all.notification->session, asks.session);
    EXPECT_FALSE(all.message);

    settings.soundEnabled = false;
    settings.glowEnabled = false;
    settings.systemNotificationsEnabled = false;
    AlertEffects none = alertEffects(asks, settings);
    EXPECT_FALSE(none.bell || none.glow || none.notification);

    TidewickSettings quiet;
    quiet.quietMode = true;
    AlertEffects hushed = alertEffects(asks, quiet);
    EXPECT_FALSE(hushed.bell);
    EXPECT_FALSE(hushed.notification);
    EXPECT_TRUE(hushed.glow) << "quiet mode keeps the screen telling everything";

    AlertEffects reply = alertEffects(alert(Alert::Kind::waitingReply), TidewickSettings{});
    EXPECT_TRUE(reply.bell);
    ASSERT_TRUE(reply.notification);
    EXPECT_EQ(reply.notification->summary, "Cursor is waiting for your reply");
    EXPECT_FALSE(reply.notification->offersAnswers) << "a reply cannot be given with a button";
}

TEST(Alerts, AnEndedTurnOnlyNotifiesAndSaysItStopped) {
    AlertEffects finished = alertEffects(alert(Alert::Kind::finished), TidewickSettings{});
    EXPECT_FALSE(finished.bell);
    EXPECT_FALSE(finished.glow);
    ASSERT_TRUE(finished.notification);
    EXPECT_EQ(finished.notification->summary, "Cursor finished");
    EXPECT_EQ(finished.notification->body, "No reply — it stopped");
    EXPECT_EQ(finished.message, "Cursor: No reply — it stopped");

    TidewickSettings quiet;
    quiet.quietMode = true;
    EXPECT_FALSE(alertEffects(alert(Alert::Kind::finished), quiet).notification);

    Alert longDetail = alert(Alert::Kind::needsPermission);
    longDetail.detail = std::string(5000, 'x');
    EXPECT_LT(alertEffects(longDetail, TidewickSettings{}).notification->body.size(), 400u);
}

} // namespace
} // namespace tidewick
