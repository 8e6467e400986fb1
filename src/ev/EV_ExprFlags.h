#ifndef EV_EXPRFLAGS_H
#define EV_EXPRFLAGS_H

/// The bits of an expression's flag word, in one place for both layers.
///
/// The engine sets the time and match bits itself; functions and variables
/// OR their usage bits into every expression that calls or reads them; the
/// channel layer reads them to learn which key numbers a segment needs and
/// whether it depends on time.
///
///   bit 15  time       reads a time-dependent variable or function
///   bit 16  (spare)    handed on by "eval" with the usage bits
///   bit 17  in value   bit 18  out value
///   bit 19  slopes     bit 21  accelerations    bit 22  knots
///   bit 23  match      calls a match function (known when compiled)
///   bit 24  hard-wired
///   bit 25  data       reads data other than time and keys
///   bit 28  evaluated  evaluated since the text last changed
enum : unsigned
{
    EV_FLAG_TIMEDEP = 1u << 15,
    EV_FLAG_BIT16 = 1u << 16,
    EV_FLAG_INVALUE = 1u << 17,
    EV_FLAG_OUTVALUE = 1u << 18,
    EV_FLAG_SLOPES = 1u << 19,
    EV_FLAG_ACCELS = 1u << 21,
    EV_FLAG_KNOTS = 1u << 22,
    EV_FLAG_MATCH = 1u << 23,
    EV_FLAG_HARDWIRED = 1u << 24,
    EV_FLAG_DATA_DEPENDENT = 1u << 25,
    EV_FLAG_EVALUATED = 1u << 28,

    EV_FLAG_VALUES = EV_FLAG_INVALUE | EV_FLAG_OUTVALUE,

    /// What "eval" hands on from the text it evaluated to its caller: time
    /// and the key numbers read (and bit 16).
    EV_FLAG_USAGE_MASK = EV_FLAG_TIMEDEP | EV_FLAG_BIT16 | EV_FLAG_VALUES | EV_FLAG_SLOPES | EV_FLAG_ACCELS,

    /// The key numbers (and knots) an expression reads: known from the
    /// functions it calls and the variables it names when it is compiled.
    EV_FLAG_KEY_USAGE = EV_FLAG_VALUES | EV_FLAG_SLOPES | EV_FLAG_ACCELS | EV_FLAG_KNOTS,

    /// What makes a segment's expression depend on time: the usage bits and
    /// the knots.
    EV_FLAG_TIME_DEPENDENT_MASK = EV_FLAG_USAGE_MASK | EV_FLAG_KNOTS,

    /// The bits of a Python expression's word that survive its evaluation
    /// (26, 27, 29 and 31); the usage bits are rebuilt by each run.
    EV_FLAG_PYTHON_KEEP = (1u << 26) | (1u << 27) | (1u << 29) | (1u << 31)
};

static_assert(EV_FLAG_TIME_DEPENDENT_MASK == 0x6f8000u, "time-dependency mask");
static_assert(EV_FLAG_USAGE_MASK == 0x2f8000u, "eval usage mask");
static_assert(EV_FLAG_PYTHON_KEEP == 0xac000000u, "python keep mask");

#endif
