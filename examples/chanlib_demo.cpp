// A short tour of what chanlib offers so far: channel-name patterns, string
// expansion with variables and back-quoted expressions, per-thread values,
// Orvish expressions, the time model, channels evaluated by expression and
// the error list. Run it with `make run`.
#include <ch/CH.h>

#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

// Answers $F and $NODE; anything else falls back to the environment.
bool demoVariable(const char *name, UT_WorkBuffer &value, void *data)
{
    int frame = *static_cast<int *>(data);
    if (UT_String(name) == "F") {
        value.sprintf("%d", frame);
        return true;
    }
    if (UT_String(name) == "NODE") {
        value.strcpy("geo1");
        return true;
    }
    if (const char *env = std::getenv(name)) {
        value.strcpy(env);
        return true;
    }
    return false;
}

// A stand-in for the expression engine: doubles a number.
bool demoExpression(const char *text, UT_WorkBuffer &value, void *)
{
    value.sprintf("%g", 2.0 * std::atof(text));
    return true;
}

void showPatterns()
{
    std::printf("Channel patterns (\"t?, r[xy]\"):\n");
    const char *channels[] = {"tx", "ty", "tz", "rx", "ry", "rz", "sx", "scale"};
    for (const char *name : channels)
        std::printf("  %-6s %s\n", name, UT_String(name).multiMatch("t?, r[xy]") ? "matches" : "-");
}

void showExpansion()
{
    std::printf("\nString expansion:\n");
    const char *texts[] = {"$NODE/frame$F.pic", "render_${NODE}_`21`.exr", "cost: \\$5", "$UNKNOWN_NAME stays"};
    int frame = 12;
    for (const char *text : texts) {
        UT_WorkBuffer out;
        bool changed = UTExprVariableScan(text, demoVariable, demoExpression, &frame, out);
        std::printf("  %-28s -> %s%s\n", text, out.buffer(), changed ? "" : "  (unchanged)");
    }
}

void showThreadSlots()
{
    std::printf("\nPer-thread values (one slot per thread, no locks):\n");
    UT_ThreadSlots<double> evalTime;
    std::vector<std::thread> workers;
    std::vector<double> seen(4);
    for (int i = 0; i < 4; ++i)
        workers.emplace_back([&, i] {
            evalTime.get() = i / 24.0;
            std::this_thread::yield();
            seen[i] = evalTime.get();
        });
    for (auto &w : workers)
        w.join();
    for (int i = 0; i < 4; ++i)
        std::printf("  worker %d evaluated at t = %.5f\n", i, seen[i]);
}

void showExpressions()
{
    std::printf("\nOrvish expressions:\n");
    ev_InitFloat();
    ev_InitString();
    const char *texts[] = {"sin(90) * 2 + 1", "-2 ^ 2", "strcat('frame', padzero(4, 12))",
                           "1 / 0", "clamp(1.5, 0, 1) ? 'on' : 'off'", "sin(1, 2)"};
    for (const char *text : texts) {
        EV_EXPRESSION *expr = ev_AllocExpr();
        ev_ChangeExpr(expr, text, 0);
        UT_String value;
        if (ev_EvaluateString(expr, value, 0))
            std::printf("  %-34s = %s\n", text, value.buffer());
        else
            std::printf("  %-34s : %s\n", text, ev_GetErrorText(ev_GetErrNo(0)));
        ev_SetErrNo(0, 0);
        ev_FreeExpr(expr);
    }
}

void showManager()
{
    std::printf("\nThe manager's time model and variables (24 fps):\n");
    CH_Manager manager;
    const float times[] = {0.0f, 0.02f, 11.0f / 24.0f, 9.5f};
    for (float t : times) {
        char timecode[32];
        manager.getTimeCode(timecode, t);
        UT_String text;
        manager.expandString("render_$F4.exr", text, t, nullptr, 0);
        std::printf("  t = %-9g frame %-4d sample %-7g %s  %s\n", t, manager.getFrame(t), manager.getSample(t),
                    timecode, text.buffer());
    }
    int timeDependent = 0;
    float value = manager.evaluate("$NFRAMES / $FPS", 0.0f, nullptr, &timeDependent, 0);
    std::printf("  $NFRAMES / $FPS = %g seconds (time dependent: %s)\n", value, timeDependent ? "yes" : "no");
}

void showChannels()
{
    std::printf("\nChannels (one key each, evaluated at any time):\n");
    CH_Manager manager;
    manager.setContext();
    CH_Collection root(&manager);
    CH_Collection geo(&manager, &root, "geo1");
    // Until keys can be set, a channel's one key carries an expression.
    CH_Channel *ty = geo.addChannel("ty");
    ty->updateEndSegment();
    ty->getEndSegment()->changeExpression("sin($T * 90) * 2", CH_ORVISH);
    CH_Channel *label = geo.addChannel("label", 0.0f, "\"untitled\"");
    for (int frame : {1, 13, 25, 37}) {
        float t = manager.getTime(static_cast<float>(frame));
        UT_String text;
        geo.evaluateString(text, label, t, 0);
        std::printf("  frame %-3d ty = %-10g label = %s\n", frame, geo.evaluate(ty, t, false, 0), text.buffer());
    }
}

void showErrors()
{
    std::printf("\nError list:\n");
    UTaddError("CH", 12, "furlong");
    UTaddError("CH", 13, "cobol");
    std::printf("%s", UT_ErrorManager::get().getFormattedErrors().c_str());
    std::printf("  worst severity: %s\n", UT_ErrorManager::severityName(UTgetErrorSeverity()));
    UTclearErrors();
}

} // namespace

int main()
{
    std::printf("chanlib %s\n\n", CHgetVersion());
    showPatterns();
    showExpansion();
    showThreadSlots();
    showExpressions();
    showManager();
    showChannels();
    showErrors();
    return 0;
}
