#include <ch/channel/CH_Key.h>

#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_FullKey.h>
#include <ch/channel/CH_ReversibleKey.h>
#include <ch/channel/CH_Segment.h>
#include <ch/manager/CH_Manager.h>

#include <cmath>
#include <cstdio>
#include <utility>

namespace {

const char theLetters[] = "vmaVMA";
const CH_ValueTypes theTypes[] = {CH_VALUE, CH_SLOPE, CH_ACCEL};

CH_Channel *channelOf(const CH_Segment *left, const CH_Segment *right)
{
    if (left && left->getChannel())
        return left->getChannel();
    return right ? right->getChannel() : nullptr;
}

float frameOf(float time)
{
    CH_Manager *mgr = CH_Manager::getContext();
    float fps = mgr ? mgr->getSamplesPerSec() : 24.0f;
    return CH_Manager::niceNumber(time * fps + 1.0f, 3);
}

} // namespace

void CH_Key::clear()
{
    for (CH_HalfKey *h : {&myIn, &myOut})
        for (int i = 0; i < CH_NUM_VALUE_TYPES; ++i)
        {
            h->myV[i] = 0.0f;
            h->myValid[i] = false;
            h->myTied[i] = false;
        }
}

void CH_Key::set(CH_ValueTypes type, float value)
{
    myIn.myV[type] = myOut.myV[type] = value;
    myIn.myValid[type] = myOut.myValid[type] = true;
}

void CH_Key::tie(int direction, CH_ValueTypes type)
{
    myIn.myTied[type] = myOut.myTied[type] = true;
    if (myIn.myValid[type] && myOut.myValid[type] && type != CH_ACCEL)
    {
        float v = 0.5f * (direction + 1) * myOut.myV[type] + 0.5f * (1 - direction) * myIn.myV[type];
        myIn.myV[type] = myOut.myV[type] = v;
    }
}

void CH_Key::tie(int direction)
{
    tie(direction, CH_VALUE);
    tie(direction, CH_SLOPE);
    myIn.myTied[CH_ACCEL] = myOut.myTied[CH_ACCEL] = true;
}

void CH_Key::complete()
{
    for (CH_ValueTypes t : theTypes)
    {
        if (myIn.myValid[t] == myOut.myValid[t])
            continue;
        const CH_HalfKey &from = myIn.myValid[t] ? myIn : myOut;
        CH_HalfKey &to = myIn.myValid[t] ? myOut : myIn;
        to.myV[t] = from.myV[t];
        to.myTied[t] = from.myTied[t];
        myIn.myValid[t] = myOut.myValid[t] = true;
    }
}

void CH_Key::get(CH_Segment *left, CH_Segment *right, bool accel_ratios)
{
    CH_Channel *channel = channelOf(left, right);
    auto read = [&](CH_Segment *seg, bool side, CH_HalfKey &half) {
        if (channel)
            myTime = (side ? seg->getStart() : seg->getEnd()) + channel->getStart();
        for (CH_ValueTypes t : theTypes)
        {
            half.myValid[t] = seg->getValueValid(side, t);
            half.myV[t] = seg->getValue(side, t);
            half.myTied[t] = seg->getValueTied(side, t);
        }
        if (!accel_ratios)
            half.myV[CH_ACCEL] = side ? seg->getInAccel() : seg->getOutAccel();
    };
    if (left)
        read(left, false, myIn);
    if (right)
        read(right, true, myOut);
    myWord = 0;
}

void CH_Key::put(CH_Segment *left, CH_Segment *right, bool accel_ratios) const
{
    CH_Channel *channel = channelOf(left, right);
    if (!channel || channel->getLocked())
        return;
    // Written as if hold-last-key were off. The setting itself is left alone:
    // other threads may be reading it.
    auto write = [&](CH_Segment *seg, bool side, const CH_HalfKey &half) {
        for (CH_ValueTypes t : theTypes)
        {
            seg->setValue(side, t, half.myV[t], false);
            seg->setValueTied(side, t, half.myTied[t]);
        }
    };
    if (left)
        write(left, false, myIn);
    if (right)
        write(right, true, myOut);
    if (!accel_ratios)
    {
        if (left)
            left->setOutAccel(myIn.myV[CH_ACCEL], false);
        if (right)
            right->setInAccel(myOut.myV[CH_ACCEL], false);
    }
}

void CH_Key::swapHalves()
{
    std::swap(myIn, myOut);
    myIn.myV[CH_SLOPE] = -myIn.myV[CH_SLOPE];
    myOut.myV[CH_SLOPE] = -myOut.myV[CH_SLOPE];
}

void CH_Key::reverse()
{
    swapHalves();
}

namespace {

template <typename Key>
void stretchKey(Key &key, float time_scale, float value_scale, bool accel_ratios)
{
    if (time_scale < 0.0f)
    {
        key.reverse();
        time_scale = -time_scale;
    }
    CHstretchSlopeAccel(time_scale, value_scale, key.myIn.myV[CH_SLOPE], key.myIn.myV[CH_ACCEL],
                        accel_ratios);
    CHstretchSlopeAccel(time_scale, value_scale, key.myOut.myV[CH_SLOPE], key.myOut.myV[CH_ACCEL],
                        accel_ratios);
}

} // namespace

void CH_Key::stretch(float time_scale, float value_scale, bool accel_ratios)
{
    stretchKey(*this, time_scale, value_scale, accel_ratios);
}

void CH_Key::changeAccelsToRatios(float in_length, float out_length)
{
    myIn.myV[CH_ACCEL] = CH_Segment::getAccelRatio(myIn.myV[CH_SLOPE], myIn.myV[CH_ACCEL], in_length);
    myOut.myV[CH_ACCEL] =
        CH_Segment::getAccelRatio(myOut.myV[CH_SLOPE], myOut.myV[CH_ACCEL], out_length);
}

void CH_Key::display() const
{
    std::printf("time: %f\n", frameOf(myTime));
    for (CH_ValueTypes t : theTypes)
        std::printf("%c:     %12f%c%c %12f%c%c\n", theLetters[t], myIn.myV[t],
                    myIn.myValid[t] ? 'v' : 'i', myIn.myTied[t] ? 't' : 'u', myOut.myV[t],
                    myOut.myValid[t] ? 'v' : 'i', myOut.myTied[t] ? 't' : 'u');
}

void CH_Key::opscript(std::ostream &os, bool use_time, bool compact) const
{
    if (use_time)
        os << " -t " << myTime;
    else
        os << " -f " << frameOf(myTime);
    std::string tied;
    for (CH_ValueTypes t : theTypes)
    {
        char lower = theLetters[t], upper = theLetters[t + 3];
        bool in_valid = myIn.myValid[t], out_valid = myOut.myValid[t];
        if (compact && !in_valid && !out_valid)
            continue;
        if (compact && myIn.myTied[t] && myIn.myV[t] == myOut.myV[t])
        {
            if (!in_valid && out_valid)
                os << " -" << upper << " " << myOut.myV[t];
            else
                os << " -" << lower << " " << myIn.myV[t];
            continue;
        }
        os << " -" << lower << " " << myIn.myV[t] << " -" << upper << " " << myOut.myV[t];
        if (myIn.myTied[t])
            tied += lower;
    }
    if (!tied.empty())
        os << " -T " << tied;
}

void CHstretchSlopeAccel(float time_scale, float value_scale, float &slope, float &accel,
                         bool accel_ratio)
{
    double s = slope;
    double sine = s / std::sqrt(s * s + 1.0);
    double cosine;
    if (std::fabs(s) > 1.0)
    {
        double r = 1.0 / std::fabs(s);
        cosine = r / std::sqrt(r * r + 1.0);
    }
    else
        cosine = std::sqrt(1.0 - sine * sine);
    double dx = cosine * time_scale;
    double dy = value_scale * sine;
    if (std::fabs(dx) * 1e8 <= std::fabs(dy))
        // Zero counts as negative on both axes.
        slope = static_cast<float>(1e8 * (dx <= 0.0 ? -1.0 : 1.0) * (dy <= 0.0 ? -1.0 : 1.0));
    else
        slope = static_cast<float>(dy / dx);
    if (!accel_ratio)
        accel = static_cast<float>(accel * std::hypot(dy, dx));
}

// ---- Full and reversible keys ------------------------------------------------------

void CH_FullKey::display() const
{
    if (myHasExpression)
        std::printf("Expression: %s (language: %s)\n", myExpression.c_str(),
                    CHexprLanguageAsString(myLanguage));
    CH_Key::display();
}

void CH_ReversibleKey::reverse()
{
    CH_Key::reverse();
    std::swap(myHasExpression, myHasReverseExpression);
    std::swap(myExpression, myReverseExpression);
    std::swap(myLanguage, myReverseLanguage);
}

void CH_ReversibleKey::stretch(float time_scale, float value_scale, bool accel_ratios)
{
    stretchKey(*this, time_scale, value_scale, accel_ratios);
}

void CH_ReversibleKey::display() const
{
    if (myHasReverseExpression)
        std::printf("Reverse Expression: %s (language: %s)\n", myReverseExpression.c_str(),
                    CHexprLanguageAsString(myReverseLanguage));
    CH_FullKey::display();
}
