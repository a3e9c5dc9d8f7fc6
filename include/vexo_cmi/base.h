/**
 * @file base.h
 * @brief What every operation shares: the result record, its codes, start and
 * stop of the library.
 *
 * @page conventions Conventions of every operation
 *
 * **Result.** An operation returns nothing. Its last argument points to a
 * `vexoResult` of the caller's, into which it writes how it went. The pointer
 * may be null: then nothing is reported, and nothing else changes.
 *
 * **Order.** An operation makes one or a few calls into the device's platform
 * libraries and stops at the first one that fails; it makes later calls only where
 * its description says that it goes on. Outputs are written once the last call has
 * succeeded; where an operation writes an output earlier, its description says so
 * ("written before").
 *
 * **Failure.** `rc` tells the class of the failure, `message` says it in words:
 * either the configuration library's text for its latest failure or the platform's
 * text for the code ("code text"). Unless an operation says "code text", it is the
 * former. That is also fetched when another part of the platform failed (clock,
 * reset, alarm report mode, alarms of system, ports and pseudowires), and then
 * need not be about that failure; nor need it be when another thread's call into
 * the configuration library fails at the same moment. #vexoRc lists which platform
 * codes become which class; their meaning is the platform's. What the library
 * refuses by itself is VEXO_RC_GENERAL with the text that the operation names
 * ("Not supported").
 *
 * **Not there, or broken.** `rc` does not tell: the platform's codes for an object
 * that is not provisioned (0x20000) and for counters that do not exist (0x1000)
 * are VEXO_RC_GENERAL, as are a general failure and the library's refusals; a
 * number that no object can have may be of another class. The text differs, but is
 * for people. What does tell depends on the kind of object:
 * - pseudowire: vexo_cmi_pwe_params_get() succeeds for one that is not provisioned,
 *   with `pweAction` 1, and fails for one that can't be read;
 * - ATM cross-connect: the list that vexo_cmi_pwe_atmop_xc_get() returns;
 * - IMA link in a group: the list that vexo_cmi_ima_lnk_get() returns;
 * - IMA group, PDH port, and an IMA link by itself: nothing; an agent has to know
 *   which there are, or take a failure to mean either. A PM report leaves out a
 *   group that is not provisioned just as one that can't be read, and a port is
 *   all 0 in both cases; only the platform's log records what could not be read;
 * - PM counters: nothing tells those that do not exist from those that can't be
 *   read.
 *
 * **Values.** Every enumeration is 32 bits wide, and any 32-bit value may be
 * passed in one: a value that is no member reaches the platform as the default
 * named at its converter (convert.h), which the platform usually refuses. A
 * platform value that the library does not know comes back as 0, unless its
 * converter names another. Numbers are checked by the platform, not here.
 *
 * **Change.** Where the platform has a record for an object (ports, pseudowires,
 * groups), a setter or a modify reads that record, changes what it is about and
 * writes the whole record back. The two steps are not atomic: of two such calls
 * for the same object at the same time, one can undo the other. The administrative
 * status, the jitter buffer size, forced AIS and ATM cross-connects have calls of
 * their own and are written alone, as are the settings of the system and the links
 * of a group.
 *
 * **Objects.** Ports, pseudowires, groups and links are addressed by unsigned
 * numbers that reach the platform unchanged. PDH ports and IMA groups count
 * from 1.
 *
 * **Ownership.** Every record belongs to the caller. The library keeps no
 * pointer to one after a call, allocates nothing and frees nothing. Every
 * pointer but the last must be valid: null is not caught.
 *
 * **Threads.** An operation runs on the caller's thread, takes no lock and may
 * be called from any thread, also from inside a callback (notify.h tells the
 * few that may not).
 *
 * **Records.** Mostly 32-bit words in the byte order of the host, without gaps.
 * Sizes and offsets are part of the binary interface; the reference lists them.
 */
#ifndef VEXO_CMI_BASE_H
#define VEXO_CMI_BASE_H

#include <stdint.h>

/* The version that this header belongs to. */
#define VEXO_CMI_VERSION_MAJOR 1 /**< no program of another one works with the library */
#define VEXO_CMI_VERSION_MINOR 0 /**< what it adds is missing in a library of a lower one */
#define VEXO_CMI_VERSION_PATCH 0 /**< changes nothing in the interface */

/** Marks what the shared library exports. */
#define VEXO_CMI_EXPORT __attribute__((visibility("default")))

/**
 * Begins an enumeration: in C++ a type of its own, 32 bits wide, that no other
 * enumeration converts to; in C a plain `uint32_t` with named constants.
 */
#ifdef __cplusplus
#define VEXO_CMI_ENUM(name) enum name : uint32_t
#else
#define VEXO_CMI_ENUM(name)                                                                        \
    typedef uint32_t name;                                                                         \
    enum
#endif

/** Names an enumeration of the platform, whose members are the platform's own. */
#ifdef __cplusplus
#define VEXO_CMI_OPAQUE_ENUM(name) enum name : uint32_t
#else
#define VEXO_CMI_OPAQUE_ENUM(name) typedef uint32_t name
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Size of a result's message, its terminator included. */
#define VEXO_MESSAGE_SIZE 128

/**
 * Outcome of an operation. The library produces no other value. It does not know
 * what tells the platform's failures apart, so they are numbered.
 */
VEXO_CMI_ENUM(vexoRc){
    VEXO_RC_OK = 0, /**< success */
    /**
     * general failure: platform codes 1, 32 and 64, every code that is not named here (0x20000
     * and 0x1000 among them), and every refusal by the library itself
     */
    VEXO_RC_GENERAL = 1, VEXO_RC_FAILURE_2 = 2, /**< platform code 2 */
    VEXO_RC_FAILURE_4 = 4,                      /**< platform codes 4, 8 and 16 */
    VEXO_RC_FAILURE_8 = 8,                      /**< platform code 128 */
    VEXO_RC_FAILURE_16 = 16,                    /**< platform code 256 */
    VEXO_RC_FAILURE_32 = 32,                    /**< platform code 512 */
    VEXO_RC_FAILURE_64 = 64,                    /**< platform code 1024 */
    VEXO_RC_FAILURE_128 = 128,                  /**< platform code 2048 */
};

/** How an operation went. */
typedef struct vexoResult {
    vexoRc rc; /**< VEXO_RC_OK or the class of the failure */
    /**
     * After a failure, its text, terminated and cut to 127 characters. After a
     * success, the empty string; the bytes behind its terminator are left alone.
     * Three operations leave it alone altogether after a success, and say so:
     * vexo_cmi_ima_pm_clear() of all groups, vexo_cmi_misc_dbg_mode_set(),
     * vexo_cmi_misc_log_reset().
     */
    char message[VEXO_MESSAGE_SIZE];
} vexoResult;

/**
 * Does nothing. Runs by itself when the library is loaded; calling it again is
 * harmless.
 */
VEXO_CMI_EXPORT void vexo_cmi_init(void);

/**
 * Stops both notification services, alarms first, and waits for their threads:
 * when it returns, no thread of the library is left and no callback will come.
 * The registered callbacks are not forgotten, and the time of the last clock
 * setting (vexo_cmi_sys_kato_send()) stays. Runs by itself when the library is
 * unloaded or the process ends normally; may be called any number of times.
 *
 * Must not be called from inside a callback, nor while another thread registers or
 * unregisters one.
 */
VEXO_CMI_EXPORT void vexo_cmi_fini(void);

/**
 * Not the library's but its host's, which must define it (in C++ as `extern "C"`)
 * or have loaded a library that does: writes the version text of the `gorv`
 * component, terminated, into @p buffer. Called by vexo_cmi_sys_version_get(),
 * vexo_cmi_sys_status_get() and swVersion_to_vexoSwVersion(), with room for 128
 * bytes, on the thread of their caller. Its return value is ignored.
 */
__attribute__((visibility("default"))) int gorvGetVersion(char *buffer, int size);

/**
 * Copies at most @p n bytes of @p src, fills the rest up to @p n with NUL and
 * ends with a NUL at @p dst[n-1] whatever was copied. Exactly @p n bytes are
 * written. A null @p src counts as the empty text; with @p n 0 nothing is done.
 * @return @p dst
 */
VEXO_CMI_EXPORT char *strcpy_n(char *dst, const char *src, unsigned n);

#ifdef __cplusplus
}
#endif

#endif
