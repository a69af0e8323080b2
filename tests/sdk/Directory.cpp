// The directory's errors.
#include "tests/sdk/Sdk.h"

#include <lm.h>

VALUE(NERR_Success, 0);
VALUE(NERR_UserNotFound, 2221);
VALUE(NERR_PasswordTooShort, 2245);
static_assert(sizeof(NET_API_STATUS) == 4);
