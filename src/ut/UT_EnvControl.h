#ifndef UT_ENVCONTROL_H
#define UT_ENVCONTROL_H

/// Integer settings read from environment variables.
///
/// Each setting has a number (the number the library asks by) and a
/// variable name:
///
/// | number | variable                         | meaning                                   |
/// |--------|----------------------------------|-------------------------------------------|
/// | 92     | CHANLIB_DEFAULT_FPS              | default frames per second (0: 24)         |
/// | 113    | CHANLIB_REVERSE_CHANNEL_SEARCH   | non-zero: pattern searches of a node's     |
/// |        |                                  | channels visit them last to first         |
/// | 124    | CHANLIB_CONSTANT_KEY_SETS_IN_VALUE | non-zero: setting a key on a constant   |
/// |        |                                  | segment sets the segment's in value       |
///
/// A variable is read on first use and the value kept; an unset variable,
/// or one that is not an integer, gives 0. Unknown numbers give 0.
class UT_EnvControl
{
public:
    enum
    {
        DEFAULT_FPS = 92,
        REVERSE_CHANNEL_SEARCH = 113,
        CONSTANT_KEY_SETS_IN_VALUE = 124
    };

    static int getInt(int number);
    /// The environment variable behind a number, or null for an unknown one.
    static const char *getName(int number);
    /// Sets a value for this process, overriding the environment.
    static void setInt(int number, int value);
    /// Forgets read and overridden values so the environment is read again.
    static void reload();
};

#endif
