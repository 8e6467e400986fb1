#ifndef CH_VERSION_H
#define CH_VERSION_H

/// The version of the linked library, "major.minor.patch".
const char *CHgetVersion();

#endif
