// The platform's identifiers, defined once for the module: Wine's libraries of them clash.
#include <windows.h>
// Behind it, and before what declares identifiers:
#include <initguid.h>
//
#include <d3d11.h>
#include <icodecapi.h>
#include <mfapi.h>
#include <mfidl.h>
#include <mftransform.h>
#include <objbase.h>
