/*
 * Host stand-in for the C library's system-properties header, which <cutils/properties.h>
 * includes for the size limits. The properties themselves live in libbase's in-process store.
 */
#ifndef HOST_SYS_SYSTEM_PROPERTIES_H
#define HOST_SYS_SYSTEM_PROPERTIES_H

#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92

#endif  // HOST_SYS_SYSTEM_PROPERTIES_H
