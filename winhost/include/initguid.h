// Makes every DEFINE_GUID that follows a definition.
#define INITGUID

#include <guiddef.h>
