/// @file
/// The application list with its start and stop, and the server port. One instance a process; the host's
/// control thread calls everything here, and application entries and module callbacks run on it.
#pragma once

#include <stdint.h>

#include "AFExport.h"
#include "EAFResult.h"

AF_EXTERN_C_BEGIN

/// One application. The host owns it and keeps it while the framework is initialized; whatever the host
/// stores behind these two words is left alone.
typedef struct SApplicationDescriptor {
    EAFResult (*initialize)(void); ///< Called once by each start; 0x8000 or more is a failure.
    const char *(*getName)(void);  ///< Asked after a failure only; null means that the failure is not named.
} SApplicationDescriptor;

/// Empties the application list. Leaves the server port, the module manager and the event handler alone.
/// @return eAF_S_OK.
AF_API EAFResult CApplicationFramework_Initialize(void);

/// Uninitializes the event handler (its answer is dropped) and forgets the applications. The module
/// manager stays as it is.
/// @return eAF_S_OK.
AF_API EAFResult CApplicationFramework_UnInitialize(void);

/// Puts an application at the head of the list: the last one registered is initialized first. One that is
/// registered twice is called twice. Where memory runs out the application is counted but not listed, and the
/// result is eAF_S_OK.
/// @retval eAF_E_NOT_INITIALIZED   before CApplicationFramework_Initialize; traced.
/// @retval eAF_E_INVALID_ARGUMENT  null descriptor; traced.
AF_API EAFResult CApplicationFramework_RegisterApplication(SApplicationDescriptor *descriptor);

/// Initializes every application, also after one failed, then runs group 0 for all radio channels.
/// @retval eAF_E_NOT_INITIALIZED   before CApplicationFramework_Initialize; traced.
/// @retval eAF_E_NO_APPLICATION    none is registered; traced.
/// @retval eAF_E_FAILED            an application failed (traced by name where it has one) or the list could not
///                                 be gone through (traced): group 0 was not run.
/// @return otherwise eAF_S_OK, or the runner's own error, which is traced as eAF_E_FAILED.
AF_API EAFResult CApplicationFramework_Start(void);

/// Runs group 1 for all radio channels. No application is called; a new start may follow.
/// @retval eAF_E_NOT_INITIALIZED   before CApplicationFramework_Initialize; traced.
/// @retval eAF_E_NO_APPLICATION    none is registered; traced.
/// @retval eAF_E_FAILED            the stop group failed, whatever the runner's error was; traced.
AF_API EAFResult CApplicationFramework_Stop(void);

/// Sets the number that keeps the queues of several instances of one user apart. Set it before the event
/// service opens its first queue. There is no lower bound.
/// @retval eAF_E_INVALID_ARGUMENT  65536 or more; not traced, the port is kept.
AF_API EAFResult CApplicationFramework_SetServerPort(int32_t port);

/// @return the server port, 0 before the first set; a plain number. Any thread may ask.
AF_API int32_t CApplicationFramework_GetServerPort(void);

/// Takes the server port from the ninth 32-bit word of the host's configuration record, whatever its
/// value. Nothing else of the record is read.
/// @retval eAF_E_INVALID_ARGUMENT  null record; not traced, the port is kept.
AF_API EAFResult CApplicationFramework_FinalInitialization(const void *hostConfiguration);

AF_EXTERN_C_END
