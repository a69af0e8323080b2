#pragma once

#include <windef.h>
#include <winerror.h>
#include <winbase.h>
#include <winnls.h>
#include <winuser.h>
#include <winreg.h>
#include <winsvc.h>
