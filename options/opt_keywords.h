// Keyword lists of the parse-kind-13 options and the yes/no reader.
#ifndef QMX_OPTIONS_OPT_KEYWORDS_H_
#define QMX_OPTIONS_OPT_KEYWORDS_H_

#include "options/opt_types.h"

extern const optKeyword_t kwOptionFormat[];        // STANDARD 0, SHORT 1
extern const optKeyword_t kwPasswordAccess[];      // PROMPT 0, GENERATE 1
extern const optKeyword_t kwCommMethod[];          // TCPIP 1, SHAREDMEM 2, V6TCPIP 3
extern const optKeyword_t kwSchedMode[];           // POLLING 1, PROMPTED 2
extern const optKeyword_t kwSessionInitiation[];   // CLIENT 0, SERVERONLY 1
extern const optKeyword_t kwEncryptionType[];      // DES56 1, AES128 2
extern const optKeyword_t kwEncryptKey[];          // PROMPT 0, SAVE 1, GENERATE 2
extern const optKeyword_t kwAuditLogging[];        // OFF 0, BASIC 1, FULL 2
extern const optKeyword_t kwAutoFsRename[];        // NO 0, YES 1, PROMPT 2
extern const optKeyword_t kwAutoDeploy[];          // NO 0, YES 1, NOREBOOT 2
extern const optKeyword_t kwClientView[];          // STANDARD 0, ALL 1
extern const optKeyword_t kwIeObjType[];           // FILE 0, IMAGE 1, NAS 2
extern const optKeyword_t kwManagedServices[];     // NONE 0, WEBCLIENT 1, SCHEDULE 2, BOTH 3
extern const optKeyword_t kwMemEfficient[];        // NO 0, YES 1, DISKCACHEMETHOD 2
extern const optKeyword_t kwImageMethod[];         // SNAPSHOT 0, STATIC 1, DYNAMIC 2
extern const optKeyword_t kwReplace[];             // PROMPT 0, ALL 1, YES 2, NO 3
extern const optKeyword_t kwRevokeRemoteAccess[];  // NONE 0, ACCESS 1
extern const optKeyword_t kwSnapshotProvider[];    // NONE 0, LVM 1
extern const optKeyword_t kwVmBackupType[];        // FULLVM 0, FILE 1
extern const optKeyword_t kwVmFullType[];          // FULL 0, CHANGED 1
extern const optKeyword_t kwYesNo[];               // the toggle words

// Finds the word of |list| that |token| abbreviates (case-insensitive).  The
// first matching word in list order wins.  Returns its index or -1.
int optFindKeyword(const optKeyword_t* list, const char* token);

// The toggle reader: YES, ON, TRUE, 1 give |yesValue|; NO, OFF, FALSE, 0
// give 0 (words may be abbreviated down to their shortest form).  Returns 0
// and sets |*result|, or PS_RC_BADVALUE for any other word.
int optReadToggle(const char* token, int yesValue, int* result);

#endif  // QMX_OPTIONS_OPT_KEYWORDS_H_
