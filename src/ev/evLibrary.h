#ifndef EV_LIBRARY_H
#define EV_LIBRARY_H

// The standard library's registration, called by ev_InitFloat and
// ev_InitString. Each registers its records every time it is called; the
// Init functions make sure that happens once.

void evRegisterFloatLibrary();
void evRegisterStringLibrary();

#endif
