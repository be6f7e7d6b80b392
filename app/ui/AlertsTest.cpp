#include "Alerts.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

Alert alert(Alert::Kind kind) {
    Alert alert;
    alert.kind = kind;
    alert.session = {AgentKind::cursor, "c1"};
    const bool held = kind == Alert::Kind::needsPermission || kind == Alert::Kind::waitingReply;
    alert.title = held                         ? "Run sudo make install"
                  : kind == Alert::Kind::error ? "The agent hit an error"
                                               : "Finished";
    alert.detail = "sudo make install\n\nInstall it";
    if (kind == Alert::Kind::usageLimit) {
        alert.title = "Cursor: 5h limit 93% used";
        alert.detail = "Resets in 2h.";
        return alert;
    }
    if (held)
        alert.requestId = UUID::random();
    alert.turnEnded = kind != Alert::Kind::needsPermission;
    return alert;
}

TEST(Alerts, EachKindSoundsGlowsAndNotifiesAsTheSettingsSay) {
    TidewickSettings usual, off, quiet, chosen;
    off.soundEnabled = off.glowEnabled = off.systemNotificationsEnabled = false;
    quiet.quietMode = true;
    chosen.alertSounds = {{Alert::Kind::usageLimit, AlertSound::none},
                          {Alert::Kind::needsPermission, AlertSound::chime}};
    using enum Alert::Kind;
    using enum AlertSound;
    struct Row {
        std::string name;
        Alert::Kind kind;
        TidewickSettings settings;
        AlertSound sound;
        bool glow;
        std::string summary; // empty: no notification
        bool offersAnswers;
    };
    for (const Row& row : std::vector<Row>{
             {"permission", needsPermission, usual, knock, true, "Cursor needs permission", true},
             {"permission, all off", needsPermission, off, none, false, "", false},
             // Quiet mode keeps the screen telling everything.
             {"permission, quiet", needsPermission, quiet, none, true, "", false},
             // A reply cannot be given with a button.
             {"reply", waitingReply, usual, question, true, "Cursor is waiting for your reply",
              false},
             {"finished", finished, usual, chime, false, "Cursor finished", false},
             {"finished, quiet", finished, quiet, none, false, "", false},
             {"error", error, usual, buzz, false, "Cursor ran into an error", false},
             {"usage limit", usageLimit, usual, pulse, false, "Cursor: 5h limit 93% used", false},
             {"usage limit, quiet", usageLimit, quiet, none, false, "", false},
             // A sound chosen per kind; a kind the setting leaves out keeps its own.
             {"usage limit, silenced", usageLimit, chosen, none, false,
              "Cursor: 5h limit 93% used", false},
             {"permission, another sound", needsPermission, chosen, chime, true,
              "Cursor needs permission", true},
             {"reply, left out", waitingReply, chosen, question, true,
              "Cursor is waiting for your reply", false}}) {
        const Alert raised = alert(row.kind);
        SCOPED_TRACE(row.name);
        const AlertEffects effects = alertEffects(raised, row.settings);
        EXPECT_EQ(rawValue(row.settings.soundFor(row.kind)), rawValue(row.sound));
        EXPECT_EQ(effects.glow, row.glow);
        EXPECT_EQ(effects.notification ? effects.notification->summary : "", row.summary);
        if (!effects.notification)
            continue;
        EXPECT_EQ(effects.notification->offersAnswers, row.offersAnswers);
        EXPECT_EQ(effects.notification->requestId, raised.requestId);
        EXPECT_EQ(effects.notification->session, raised.session);
    }

    const AlertEffects asks = alertEffects(alert(needsPermission), usual);
    EXPECT_EQ(asks.notification->body,
              "Run sudo make install\nsudo make install\n\nInstall it\n⚠ runs with admin rights");
    EXPECT_FALSE(asks.message);
    const AlertEffects ended = alertEffects(alert(finished), usual);
    EXPECT_EQ(ended.notification->body, "No reply — it stopped");
    EXPECT_EQ(ended.message, "Cursor: No reply — it stopped");
    EXPECT_EQ(alertEffects(alert(error), usual).message, "Cursor: The agent hit an error");
    const AlertEffects usage = alertEffects(alert(usageLimit), usual);
    EXPECT_EQ(usage.notification->body, "Resets in 2h.");
    EXPECT_EQ(usage.message, "Cursor: 5h limit 93% used. Resets in 2h.");

    Alert burst = alert(waitingReply);
    burst.detail.reset();
    burst.alsoHeld = 2;
    EXPECT_EQ(alertEffects(burst, usual).notification->body,
              "Run sudo make install\n+2 more requests waiting");

    // Always allow when the request offers it; a question shows itself and its options.
    Alert lasting = alert(needsPermission);
    lasting.canAlwaysAllow = true;
    EXPECT_TRUE(alertEffects(lasting, usual).notification->offersAlways);
    EXPECT_FALSE(asks.notification->offersAlways);
    Alert asking = alert(needsPermission);
    asking.title = "Claude Code is asking you a question";
    asking.detail = "Which colour?\n\u2022 Red\n\u2022 Blue";
    asking.question = true;
    asking.choices = {"Red", "Blue"};
    const Notification asked = *alertEffects(asking, usual).notification;
    EXPECT_EQ(asked.summary, "Claude Code is asking you a question");
    EXPECT_EQ(asked.body, "Which colour?\n\u2022 Red\n\u2022 Blue");
    EXPECT_FALSE(asked.offersAnswers) << "a question is answered, not allowed";
    EXPECT_EQ(asked.choices, asking.choices);

    Alert longDetail = alert(needsPermission);
    longDetail.detail = std::string(5000, 'x');
    EXPECT_LT(alertEffects(longDetail, usual).notification->body.size(), 400u);
}

} // namespace
} // namespace tidewick
