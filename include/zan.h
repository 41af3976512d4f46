/* SPDX-License-Identifier: MIT */
/* libzan: the client library of the router's configuration manager, the zan
 * daemon. A process that links it is a module.
 *
 * Every exchange with the daemon is one fixed-layout record, zan_msg, on a
 * System V message queue. A module calls zan_register() once and then makes
 * requests. A request sends one record and waits for the answer with the same
 * class and command.
 *
 * Contents
 *   Constants: result codes, classes, commands, sizes, limits, log levels
 *   Types: the record, the answer area, handlers
 *   Identity: variables that registration sets; read-only for modules
 *   Registration: become a module of the daemon, and leave
 *   Configuration: read and write values, instances, files and attributes of
 *       the tree
 *   Logins, conversions, device facts: what several modules ask the daemon
 *   Reset and apply: back to defaults, and into effect
 *   Subscriptions: choose which changes and events the daemon forwards
 *   Handlers: functions of the module that receive records
 *   Receive thread: a thread that dispatches records in the background
 *   Polling: take one record from the module's queue
 *   Direct messages: send bytes to one module or to all
 *   Event messages: JSON texts between modules
 *   System actions: upgrade, save, back up, reset, run, reboot
 *   Firewall: firewall_cntl command lines for the daemon
 *   Remote management: requests to the daemon's CWMP client
 *   Logging: levels and destinations that all modules share
 *   Mesh agents: registration over a link of its own
 *   Records on the daemon link: receive on an agent's connection
 *   Values over the daemon link, and command lines: what bypasses the
 *       configuration queue
 *   Sockets: the daemon link and the module links
 *   Sockets: serialised: zan_ipc_ and ipc_ functions, which modules use
 *   Sockets: daemon link over TCP: zan_socket_ functions
 *   Sockets: module links over UDP: ipc_socket_ functions
 *   Sockets: local: the same links below /tmp, zan_lsocket_ and ipc_lsocket_
 *       functions
 *   Queues: the primitives that every request is built on
 *   Locks: the API lock and the queue lock
 *   Answers: wait for the answer to a request
 *   Strings and numbers: bounded copies, strict conversions
 *   Addresses: IPv4 and MAC addresses: validation, conversion
 *   Interfaces and routes: addresses, counters and routes, from the kernel
 *   Paths: compare configuration paths and take them apart
 *   Lists: release linked lists
 *   Fields: texts and numbers one after the other in a buffer
 *   Time and hashing: times as text, a hash of names
 *   Processes and files: shell commands, checked files
 *   Output: the console, and any stream
 *
 * Each function's comment says what it does and then, where they apply:
 *
 * Returns: the result. 0 or a positive number is success. A negative number is
 *     failure: one of enum zan_error, or the daemon's own result, passed
 *     through.
 * Prints: the lines that it writes to standard output, in quotation marks, each
 *     ended by a newline unless stated otherwise. Words in capitals stand for
 *     values: FUNCTION for the name of the function called, REASON for the text
 *     of errno. Without this label it prints nothing.
 * Locks: the locks that it takes, and which threads may call it. Without this
 *     label it takes no lock and any thread may call it.
 * Blocks: what it waits for, and for how long at most. Without this label it
 *     waits for no other process.
 * Hazard: behaviour that modules in the field rely on and that can hurt a
 *     caller, with the way around it.
 *
 * A section begins with what applies to all of its functions; a function adds
 * to that or says what differs.
 *
 * No function may be called from a signal handler. Names that are not in this
 * header are not part of the interface. */
#ifndef ZAN_H
#define ZAN_H

#include <stdint.h>
#include <stdio.h>

struct sockaddr;    /* <sys/socket.h> */
struct sockaddr_in; /* <netinet/in.h> */
struct sockaddr_un; /* <sys/un.h> */

#define ZAN_VERSION_MAJOR 0
#define ZAN_VERSION_MINOR 1
#define ZAN_VERSION_PATCH 0

#if defined(__GNUC__)
#define ZAN_API __attribute__((visibility("default")))
#define ZAN_PRINTF(format_index, first_argument)                                                   \
    __attribute__((format(printf, format_index, first_argument)))
#else
#define ZAN_API
#define ZAN_PRINTF(format_index, first_argument)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* -------------------------------------------------------------------------- */
/* Constants                                                                  */
/* -------------------------------------------------------------------------- */

/* Result codes of the library. Any other negative result is the daemon's. */
enum zan_error {
    ZAN_ERR = -1,              /* not registered, bad argument, failed receive */
    ZAN_ERR_TIMEOUT = -2,      /* no answer on the daemon link in time */
    ZAN_ERR_SEND = -2003,      /* the request could not be sent */
    ZAN_ERR_CREATE = -2005,    /* the socket could not be created */
    ZAN_ERR_REMOVE = -2006,    /* the queue or socket could not be removed */
    ZAN_ERR_MESH = -2010,      /* the mesh agent is not ready */
    ZAN_ERR_QUEUE_IDS = -2105, /* queue ids missing or clashing at registration */
    ZAN_ERR_REFUSED = -7007    /* an action refused by the library */
};

/* Request classes: the type of a record. */
enum zan_class {
    ZAN_CLASS_CFG = 1,          /* configuration, to ZAN_MODULE_CFG */
    ZAN_CLASS_CWMP = 2,         /* remote management, to ZAN_MODULE_CWMP */
    ZAN_CLASS_REGISTRATION = 3, /* a module registers or unregisters */
    ZAN_CLASS_MESSAGE = 4,      /* direct message to one module */
    ZAN_CLASS_NOTIFY = 5,       /* subscriptions and notifications, to ZAN_MODULE_CORE */
    ZAN_CLASS_ACTION = 7,       /* files and actions, to ZAN_MODULE_ACTION; task manager */
    ZAN_CLASS_CONTROL = 8,      /* control command lines */
    ZAN_CLASS_BROADCAST = 9     /* direct message to all modules */
};

/* The daemon's own modules: the destinations of requests. */
#define ZAN_MODULE_CORE "ZAN"
#define ZAN_MODULE_CFG "ZAN_CFG"
#define ZAN_MODULE_CWMP "ZAN_CWMP"
#define ZAN_MODULE_ACTION "ZAN_FAD"

/* The files in which the daemon stores the ids of its request queue and of its
 * queue for registration answers, as decimal text. */
#define ZAN_QUEUE_FILE "/tmp/zan_qid"
#define ZAN_REGISTRATION_QUEUE_FILE "/tmp/zan_req_qid"

/* The key file of a module's queue: a format for its name and instance. */
#define ZAN_KEY_FILE "/tmp/%s_%d.msq"

/* Commands of ZAN_CLASS_CFG. */
enum zan_cfg_cmd {
    ZAN_CFG_GET = 1,
    ZAN_CFG_SET = 2,
    ZAN_CFG_DELETE = 3,
    ZAN_CFG_RELOAD = 4,
    ZAN_CFG_DUMP = 5,
    ZAN_CFG_SET_FILE = 7,
    ZAN_CFG_PRINT = 12,
    ZAN_CFG_GET_ATTR = 15,
    ZAN_CFG_SET_ATTR = 16,
    ZAN_CFG_LOGIN = 19,
    ZAN_CFG_EMPTY = 20,
    ZAN_CFG_RESET = 21,
    ZAN_CFG_CONVERT_PATH = 22,
    ZAN_CFG_GET_ARRAY = 23,
    ZAN_CFG_ANCHOR = 25,
    ZAN_CFG_IFNAME = 29,
    ZAN_CFG_RESERVED_30 = 30, /* answers with text; no request sends it */
    ZAN_CFG_CONVERT = 31,
    ZAN_CFG_APPLY_ALL = 32,
    ZAN_CFG_APPLY_FIREWALL = 33,
    ZAN_CFG_MODULE_PID = 34
};

/* Commands of ZAN_CLASS_REGISTRATION. */
enum zan_registration_cmd { ZAN_REGISTER = 0, ZAN_UNREGISTER = 1 };

/* Commands of ZAN_CLASS_MESSAGE and ZAN_CLASS_BROADCAST. */
enum zan_message_cmd {
    ZAN_MESSAGE_SEND_WITH_ACK = 1,
    ZAN_MESSAGE_ACK = 2,
    ZAN_MESSAGE_SEND_ALL = 3,
    ZAN_MESSAGE_SEND = 4
};

/* Commands of ZAN_CLASS_NOTIFY. */
enum zan_notify_cmd {
    ZAN_NOTIFY_REGISTER_VALUE = 0,
    ZAN_NOTIFY_REGISTER_EVENT = 1,
    ZAN_NOTIFY_UNREGISTER_VALUE = 2,
    ZAN_NOTIFY_UNREGISTER_EVENT = 3,
    ZAN_NOTIFY_VALUE_CHANGED = 7, /* incoming */
    ZAN_NOTIFY_EVENT = 8          /* incoming */
};

/* Action codes: the commands of ZAN_CLASS_ACTION. */
enum zan_action {
    ZAN_ACTION_EVENT_RESULT = 1, /* the result of a handled event */
    ZAN_ACTION_UPGRADE_FIRMWARE = 2,
    ZAN_ACTION_UPGRADE_CONFIG = 3,
    ZAN_ACTION_SAVE_CONFIG = 4,
    ZAN_ACTION_FACTORY_RESET = 5,
    ZAN_ACTION_BACKUP_CONFIG = 6,
    ZAN_ACTION_RUN_SHELL = 7,
    ZAN_ACTION_REBOOT = 9,
    ZAN_ACTION_SAVE_CONFIG2 = 10,
    ZAN_ACTION_SAVE_LOG = 15,
    ZAN_ACTION_BACKUP_OLD_CONFIG = 16,
    ZAN_ACTION_FACTORY_RESET_WO_WIFI = 17 /* keeps the Wi-Fi settings */
};

/* The command of ZAN_CLASS_CONTROL. */
enum zan_control_cmd { ZAN_CONTROL_COMMAND_LINE = 0 };

/* Sizes of the record, in bytes. */
enum zan_size {
    ZAN_NAME_SIZE = 32,    /* a module name with its terminator */
    ZAN_HEADER_SIZE = 100, /* after mtype; msgsz is this plus len */
    ZAN_DATA_SIZE = 35000, /* the payload area */
    ZAN_BODY_SIZE = 35100, /* header and payload area: the maximum msgsz */
    ZAN_PATH_SIZE = 1024   /* a configuration path with its terminator */
};

/* Maximum lengths of texts in a record, in characters. A longer text is cut. */
enum zan_longest {
    ZAN_LONGEST_MESSAGE = 1024,      /* a direct message, in bytes */
    ZAN_LONGEST_COMMAND_LINE = 1024, /* control and firewall requests */
    ZAN_LONGEST_SHELL_COMMAND = 511,
    ZAN_LONGEST_FILE_NAME = 1023,    /* also the name in an action */
    ZAN_LONGEST_LOGIN = 1022,        /* the items, and the newlines between them */
    ZAN_LONGEST_ATTRIBUTES = 1022,   /* path, a space and the attributes */
    ZAN_LONGEST_PRINT = 1023,        /* path, a space and the text after it */
    ZAN_LONGEST_SET = 2046,          /* a flag of one character, path, a space and the value */
    ZAN_LONGEST_CHANGED_VALUE = 1023 /* what a value-changed handler gets */
};

/* Levels of a log message. */
enum zan_log_level {
    ZAN_LOG_EMERGENCY = 0,
    ZAN_LOG_ALERT = 1,
    ZAN_LOG_CRITICAL = 2,
    ZAN_LOG_ERROR = 3,
    ZAN_LOG_WARNING = 4,
    ZAN_LOG_NOTICE = 5,
    ZAN_LOG_INFO = 6, /* "Infomation" in log files */
    ZAN_LOG_VERBOSE = 7
};

/* Destinations of a module's log messages. Any other value discards them. */
enum zan_log_dest {
    ZAN_LOG_CONSOLE = 1,
    ZAN_LOG_TERMINALS = 2, /* /dev/pts/0 to 2 */
    ZAN_LOG_SYSLOG = 3,
    ZAN_LOG_ALL = 4,
    ZAN_LOG_FILE = 5
};

/* The log table is in shared memory: ZAN_LOG_ENTRIES entries under the key
 * ftok(ZAN_LOG_KEY_PATH, ZAN_LOG_KEY_ID). The configuration tree has a module's
 * settings at ZAN_LOG_TREE "/MODULE/loglevel" and ZAN_LOG_TREE
 * "/MODULE/logdest". */
enum zan_log_table { ZAN_LOG_ENTRIES = 64, ZAN_LOG_KEY_ID = 109 };
#define ZAN_LOG_KEY_PATH "/tmp"
#define ZAN_LOG_TREE "/sys/log"

/* -------------------------------------------------------------------------- */
/* Types                                                                      */
/* -------------------------------------------------------------------------- */

/* The record without its queue type, which is its form on sockets. */
typedef struct zan_body {
    int32_t type;             /* enum zan_class */
    int32_t cmd;              /* command within the class */
    char dst[ZAN_NAME_SIZE];  /* destination module */
    char src[ZAN_NAME_SIZE];  /* source module */
    int32_t pid;              /* sender's process id; instance at registration */
    int32_t time;             /* seconds since 1970, or 0 */
    int32_t spare;            /* always 0 */
    int32_t result;           /* of an answer; if negative, data is an error text */
    int32_t aux;              /* for the daemon; 0 in requests */
    int32_t arg;              /* small argument of a request */
    int32_t len;              /* payload bytes */
    char data[ZAN_DATA_SIZE]; /* payload */
} zan_body;

/* The record as msgsnd() and msgrcv() take it. */
typedef struct zan_msg {
    long mtype;
    zan_body body;
} zan_msg;

/* The answer area of a request. */
typedef struct zan_resp {
    char *ptr;                /* answer by reference, or unchanged */
    char data[ZAN_DATA_SIZE]; /* answer by copy */
    int len;                  /* length of the answer in bytes */
} zan_resp;

/* The payload of ZAN_CLASS_ACTION, always sent in full. */
typedef struct zan_action_data {
    int32_t code;                         /* enum zan_action, or the reported event */
    int32_t wait;                         /* 0: the sender does not wait for the answer */
    int32_t param;                        /* for the daemon */
    char name[ZAN_LONGEST_FILE_NAME + 1]; /* of a file, or a text; zeros after it */
} zan_action_data;

/* A login to check: four items, an optional fifth, which is null if absent, and
 * the number that the daemon answers with. */
typedef struct zan_login_req {
    const char *item1;
    const char *item2;
    const char *item3;
    const char *item4;
    const char *item5;
    int result;
} zan_login_req;

/* An entry of the log table, which all processes of the device share. */
typedef struct zan_log_entry {
    char name[ZAN_NAME_SIZE]; /* of the module */
    int32_t level;            /* the highest level that is logged */
    uint8_t dest;             /* enum zan_log_dest */
    uint8_t in_use;           /* 0: free, and so are all entries after it */
    uint8_t padding[2];       /* 0 */
    int32_t cpu;              /* the cpu flag of the registration */
} zan_log_entry;

/* Called when a value has changed. The notification is one line of six fields,
 * which the library passes on by position; the daemon defines them. source (up
 * to 31 characters) is the module that made the change, path and value (up to
 * 1023 each) the node and its new value, kind what happened, option the setting
 * of the subscription, and subscribed (up to 511) its path. A missing text is
 * empty, a missing kind 1, a missing option 0. */
typedef int (*zan_value_changed_fn)(char *source, char *path, char *value, char *subscribed,
                                    int kind);
typedef int (*zan_value_changed2_fn)(char *source, char *path, char *value, char *subscribed,
                                     int kind, int option);

/* Called for an event; type is ZAN_CLASS_NOTIFY. */
typedef int (*zan_event_fn)(int event, int type);

/* Called for a direct message or a broadcast of len bytes. body is the whole
 * record. len never exceeds the storage after data; body->len is what the
 * sender wrote. */
typedef int (*zan_message_fn)(char *data, int len, zan_body *body);

/* Called for a task-manager message; type is ZAN_CLASS_ACTION. */
typedef int (*zan_taskmgr_fn)(char *data, int type);

/* -------------------------------------------------------------------------- */
/* Identity                                                                   */
/* -------------------------------------------------------------------------- */

extern ZAN_API int g_zan_qid;     /* the daemon's request queue, or -1 */
extern ZAN_API int g_reg_msq_qid; /* the daemon's registration-answer queue, or -1 */
extern ZAN_API int g_msq_qid;     /* this module's own queue, or -1 */
extern ZAN_API int g_msq_qid2;    /* this module's second queue, or -1 */
extern ZAN_API int g_ipc_handle;  /* this agent's daemon link, or -1 */
extern ZAN_API char g_module_name[ZAN_NAME_SIZE];
extern ZAN_API char g_agent_name[ZAN_NAME_SIZE];

/* -------------------------------------------------------------------------- */
/* Registration                                                               */
/* -------------------------------------------------------------------------- */

/* A module name has at most 31 characters. A longer one is cut in
 * g_module_name; in the record itself it overwrites the fields that follow,
 * except those that are set later. */

/* Makes this process the module `name`: initialises the API lock, creates the
 * module's queue and announces it to the daemon. Call it before any other
 * request.
 *
 * A failed attempt is repeated three times with another queue key. The queue of
 * a failed attempt is removed, its key file is kept. A retry that gets the
 * queue id 0 also counts as failed, but the last one's 0 is returned.
 *
 * Returns: the queue id, 0 or positive; ZAN_ERR for a null name or a failed
 *     wait; ZAN_ERR_QUEUE_IDS if there is no daemon, the queue cannot be
 *     created, or its id equals one of the daemon's; ZAN_ERR_SEND; or the
 *     daemon's negative result.
 * Prints: "zan_get_msq_qid:The file /tmp/zan_qid is not exist",
 *     "zan_get_reg_msq_qid:The file /tmp/zan_req_qid is not exist" or both if
 *     there is no daemon; "!!!Error: the msq_qid=ID is same as zan_qid=ID or
 *     zan_req_qid=ID" if the ids are equal, which means that the daemon's files
 *     are older than the queues; the lines of zan_msg_create_by_id(),
 *     zan_msg_send() or zan_msg_recv() if one fails; "zan_register_msq:register
 *     fail! Retry N[PROJ]..." before each of the retries 3[1], 2[2] and 1[3].
 * Locks: none. Call it before any other thread uses the library.
 * Blocks: while the daemon's request queue is full, and until the daemon
 *     answers, without a time limit. */
ZAN_API int zan_register(const char *name, int instance);

/* Registers a second queue, instance 1, under `name`. Its id is also in
 * g_msq_qid2.
 *
 * Returns: as zan_register().
 * Prints: the lines of zan_register(), with the name "zan_register_msqid" in
 *     the retry line and "!!!Error: the g_msq_qid2=ID is same as zan_qid=ID or
 *     zan_req_qid=ID" for the first attempt.
 * Locks: none. Call it before any other thread uses the library.
 * Blocks: while the daemon's request queue is full, and until the daemon
 *     answers, without a time limit.
 * Hazard: if the first attempt fails, the retries set g_msq_qid instead of
 *     g_msq_qid2, and the queues of failed attempts are kept. After a result
 *     that g_msq_qid2 does not hold, unregister the module and register again.
 */
ZAN_API int zan_register_msqid(const char *name);

/* Announces an existing queue under g_module_name.
 *
 * Returns: qid; ZAN_ERR_SEND; ZAN_ERR for a failed wait; or the daemon's
 *     negative result.
 * Prints: "zan_register_by_qid:qid=QID"; then "zan_register_by_qid: register
 *     fail! ret = RESULT" if the wait fails or the daemon refuses.
 * Locks: none. Call it before any other thread uses the library.
 * Blocks: while the daemon's request queue is full, and until the daemon
 *     answers, without a time limit. */
ZAN_API int zan_register_by_qid(int qid);

/* Leaves the daemon: destroys both locks, unregisters the second queue if there
 * is one and then the main queue, and removes the queues and their key files.
 * Call it last. Queues outlive their process: a module that ends without this
 * call leaves its queue behind.
 *
 * Returns: 0; ZAN_ERR if the module is not registered, for a null name, or for
 *     a failed wait; ZAN_ERR_SEND; ZAN_ERR_REMOVE if the queue cannot be
 *     removed; or the daemon's result if that is not positive, and then the
 *     queue and its key file are kept.
 * Prints: "zan_unregister_msq: pid=PID" if the module is not registered; the
 *     lines of zan_msg_send(), zan_msg_recv() or zan_msg_del() if one fails.
 * Locks: none, because it destroys them first. Call it when no other thread
 *     uses the library.
 * Blocks: while the daemon's request queue is full, and until the daemon
 *     answers, without a time limit. */
ZAN_API int zan_unregister(const char *name, int instance);

/* Unregisters one queue and removes it together with its key file.
 *
 * Returns: as zan_unregister().
 * Prints: the lines of zan_msg_send(), zan_msg_recv() or zan_msg_del() if one
 *     fails.
 * Locks: the API lock, from before the send until the queue is removed.
 * Blocks: while the daemon's request queue is full, and until the daemon
 *     answers, without a time limit.
 * Hazard: if a queue id of the module or of the daemon is negative, it returns
 *     -1 and leaves the API lock held; the next request blocks. Check qid
 *     first, or call zan_api_unlock() after that result. If it returns
 *     ZAN_ERR_REMOVE, it has released the lock twice, which can release it
 *     under another thread; let no other thread make requests meanwhile. */
ZAN_API int zan_unregister_msqid(const char *name, int instance, int qid);

/* Read the id of the daemon's request queue from "/tmp/zan_qid", and the id of
 * its queue for registration answers from "/tmp/zan_req_qid".
 *
 * Returns: the queue id, or -1 if the file cannot be read.
 * Prints: "FUNCTION:The file FILE is not exist" if it fails. */
ZAN_API int zan_get_msq_qid(void);
ZAN_API int zan_get_reg_msq_qid(void);

/* -------------------------------------------------------------------------- */
/* Configuration                                                              */
/* -------------------------------------------------------------------------- */

/* Requests to ZAN_MODULE_CFG. A path is formatted from fmt and cut at 1023
 * characters. An instance number follows a colon, as in "/sys/user:1/name".
 * Pass a path that is not a literal as an argument to "%s". They use no heap
 * and less than 8 KB of stack, or 36 KB more if another request is in flight,
 * which only happens while the API lock is not initialised or not held.
 *
 * Returns: 1; ZAN_ERR for a null argument or a failed wait; ZAN_ERR_SEND if the
 *     request cannot be sent, as when there is no daemon; or the daemon's
 *     negative result. The daemon's error text is not passed on.
 * Prints: if the send fails, the line of zan_msg_send(), "FUNCTION:zan_msg_send
 *     fail!", "FUNCTION: path=PATH" and "FUNCTION: pid=PID"; the lines of
 *     zan_msg_recv() if the wait fails or is interrupted.
 * Locks: the API lock, from before the send until the answer has been copied
 *     out.
 * Blocks: while another thread makes a request, while the daemon's request
 *     queue is full, and until the daemon answers. There is no time limit. A
 *     signal handler interrupts the wait; it is resumed once, and a second
 *     signal ends it. */

/* Reads a value into `value`, a buffer of `size` bytes. A size below 5 means
 * 1024. A longer value is cut. On failure `value` is unchanged. `value` may be
 * null: then nothing is copied.
 *
 * Prints: the warning of zan_strcpy() if the value is cut. */
ZAN_API int cfg_getstr(char *value, int size, const char *fmt, ...) ZAN_PRINTF(3, 4);

/* Writes a value. Path and value are cut at 2044 characters together. */
ZAN_API int cfg_setstr(const char *value, const char *fmt, ...) ZAN_PRINTF(2, 3);

/* Reads a value as a decimal integer, limited to 32 bits.
 *
 * Returns: the number, or 0 if the value cannot be read.
 * Prints: "cfg_getint failed for PATH" if the value cannot be read; before it
 *     the lines of a failed request under the name cfg_getstr.
 * Hazard: the formatted path is used as a format once more, so "%%" in it
 *     becomes "%". Use no "%" in paths. */
ZAN_API int cfg_getint(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* Writes a value as decimal text.
 *
 * Prints: the lines of a failed request under the name cfg_setstr.
 * Hazard: the formatted path is used as a format once more, so "%%" in it
 *     becomes "%". Use no "%" in paths. */
ZAN_API int cfg_setint(int value, const char *fmt, ...) ZAN_PRINTF(2, 3);

/* Counts the instances of a multi-instance object, whose path is cut at 255
 * characters.
 *
 * Returns: the number of instances, or 0 if the request fails.
 * Prints: the lines of a failed request under the name cfg_getstr.
 * Hazard: the formatted path is used as a format once more, so "%%" in it
 *     becomes "%". Use no "%" in paths. */
ZAN_API int cfg_getcount(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* Reads all instances of an object into `value` as one text, whose layout is
 * the daemon's, with `size` as in cfg_getstr().
 *
 * Prints: the warning of zan_strcpy() if the text is cut. */
ZAN_API int cfg_getarray(char *value, int size, const char *fmt, ...) ZAN_PRINTF(3, 4);

/* Finds the process id of a registered module.
 *
 * Returns: the process id, or a negative code.
 * Prints: "cfg_get_module_pid: module=MODULE" in place of the line with the
 *     path. */
ZAN_API int cfg_get_module_pid(const char *module);

/* Creates an instance of a multi-instance object. */
ZAN_API int cfg_anchor(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* Deletes a node or an instance. */
ZAN_API int cfg_del(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* Have the daemon load a configuration file, use one, or dump its tree into
 * one. The daemon defines mode. A file name of more than 1023 characters is
 * cut.
 *
 * Prints: "FUNCTION: loadfile=FILE", or "cfg_dump: dumpfile=FILE", in place of
 *     the line with the path; the warning of zan_strcpy() if the file name is
 *     cut. */
ZAN_API int cfg_reload(char *file);
ZAN_API int cfg_setfile(char *file);
ZAN_API int cfg_dump(int mode, char *file);

/* Has the daemon print a subtree on its own standard output. The daemon defines
 * mode and extra, which may be null. Path, a space and extra are cut at 1023
 * characters together.
 *
 * Prints: "cfg_print: tmp_path=PATH" in place of the line with the path. */
ZAN_API int cfg_print(int mode, const char *extra, const char *fmt, ...) ZAN_PRINTF(3, 4);

/* Reads the attributes of a node.
 *
 * Returns: the address of their text; 0 if there is no answer or the daemon
 *     refuses; or ZAN_ERR_SEND. intptr_t is int on the target.
 * Prints: "cfg_getattr: tmp_path=PATH" in place of the line with the path.
 * Hazard: the text is in one buffer of the process, which a later request of
 *     any thread may overwrite. Copy it at once, and let no other thread make
 *     requests meanwhile. */
ZAN_API intptr_t cfg_getattr(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* Writes the attributes of a node. Path, a space and attr are cut at 1022
 * characters together.
 *
 * Prints: "cfg_setattr: tmp_path=PATH" in place of the line with the path. */
ZAN_API int cfg_setattr(const char *attr, const char *fmt, ...) ZAN_PRINTF(2, 3);

/* -------------------------------------------------------------------------- */
/* Logins, conversions, device facts                                          */
/* -------------------------------------------------------------------------- */

/* Requests to ZAN_MODULE_CFG. They use no heap and less than 8 KB of stack.
 *
 * Returns: 1; ZAN_ERR for a null argument or a failed wait; ZAN_ERR_SEND; or
 *     the daemon's negative result.
 * Prints: if the send fails, the line of zan_msg_send(), "FUNCTION:zan_msg_send
 *     fail!" and "FUNCTION: pid=PID"; the lines of zan_msg_recv() if the wait
 *     fails or is interrupted.
 * Locks: the API lock, from before the send until the answer has been copied
 *     out.
 * Blocks: while another thread makes a request, while the daemon's request
 *     queue is full, and until the daemon answers, without a time limit. */

/* Has the daemon check a login. The items travel one per line and are cut at
 * 1022 characters together; the record's length counts them uncut, and the rest
 * reads as zeros. req->result is set to 0, and on success to the daemon's
 * number. The fifth item may be null.
 *
 * Returns: ZAN_ERR also if one of the first four items is null. */
ZAN_API int zan_loginauth(zan_login_req *req);

/* Read the user accounts under "/sys/user": their number, and the name and the
 * password of account number index, with value and size as in cfg_getstr().
 *
 * Returns: cfg_getcount_login_account() the number of accounts, or 0 if the
 *     request fails.
 * Prints: the lines of cfg_getcount() or cfg_getstr() if the request fails. */
ZAN_API int cfg_getcount_login_account(void);
ZAN_API int cfg_getstr_login_un(char *value, int size, int index);
ZAN_API int cfg_getstr_login_pw(char *value, int size, int index);

/* Has the daemon convert a text. A text of more than 1023 characters is cut.
 * The daemon defines mode.
 *
 * Prints: the warning of zan_strcpy() if the text is cut. */
ZAN_API int zan_convert(int mode, char *text);

/* Converts a path, cut at 1022 characters, in one of the daemon's ways. The
 * answer is cut at size-1 characters, and at 1023. `value` is unchanged if size
 * is below 1, and may be null.
 *
 * Returns: ZAN_ERR also for a kind below 0 or above 9.
 * Prints: the warning of zan_strcpy() if the answer is cut at 1023 characters.
 */
ZAN_API int zan_convert_path(char *value, int size, int kind, const char *fmt, ...)
    ZAN_PRINTF(4, 5);

/* Reads the name of the interface that a path stands for, with value and size
 * as in cfg_getstr().
 *
 * Prints: the warning of zan_strcpy() if the name is cut. */
ZAN_API int zan_cfg_get_ifname(char *value, int size, const char *fmt, ...) ZAN_PRINTF(3, 4);

/* Read "/runtime/hw/model", "/runtime/hw/type" and "/runtime/hw/customer_id"
 * with cfg_getint(), and keep the number for the life of the process. A number
 * of 0 is not kept. cfg_hw_id_info_init() clears what is kept if it is called
 * first; the others call it.
 *
 * Returns: the number, or 0 if it cannot be read.
 * Prints: the lines of cfg_getint() if the number cannot be read. */
ZAN_API void cfg_hw_id_info_init(void);
ZAN_API int cfg_get_hw_model(void);
ZAN_API int cfg_get_hw_type(void);
ZAN_API int cfg_get_customer_id(void);

/* Derives the class of the device from the customer id: 3 and 4 belong to 2, 48
 * to 27, any other to itself.
 *
 * Returns: the class.
 * Prints: the lines of cfg_getint() if the customer id cannot be read. */
ZAN_API int cfg_get_customize(void);

/* Reads the kind of the WAN interface from "/sys/config_type".
 *
 * Returns: 1 for "Ethernet", 2 for "xPON", else 0; 0 also if the hardware model
 *     is not 29 or the class is not 14.
 * Prints: the lines of cfg_getint() or cfg_getstr() if a value cannot be read.
 */
ZAN_API int cfg_get_q47_wantype(void);

/* Asks whether an interface, given by its name or by a path to convert,
 * contains the name that the OMCI IP host refers to.
 *
 * Returns: 1 if it does, else 0.
 * Prints: the lines of zan_convert_path() or cfg_getstr() if a request fails.
 * Hazard: a path is used as a format without arguments, so "%%" in it becomes
 *     "%". Use no "%" in paths. */
ZAN_API int cfg_is_iphost_conn(char *name);

/* -------------------------------------------------------------------------- */
/* Reset and apply                                                            */
/* -------------------------------------------------------------------------- */

/* Requests to ZAN_MODULE_CFG. They use no heap and less than 8 KB of stack.
 *
 * Returns: 1; ZAN_ERR for a null argument or a failed wait; ZAN_ERR_SEND; or
 *     the daemon's negative result.
 * Prints: if the send fails, the line of zan_msg_send(), "FUNCTION:zan_msg_send
 *     fail!" and "FUNCTION: pid=PID"; the lines of zan_msg_recv() if the wait
 *     fails or is interrupted.
 * Locks: the API lock, from before the send until the answer has arrived.
 * Blocks: while another thread makes a request, while the daemon's request
 *     queue is full, and until the daemon answers, without a time limit. */

/* Resets a subtree to its defaults. */
ZAN_API int cfg_reset(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* Applies the stored configuration to the running system, unless
 * "/runtime/app/tr069/config_state" is 1, which means that remote management is
 * writing configuration. That value is read first, in a request of its own, and
 * can change right after.
 *
 * Returns: -1 without a request while that value is 1.
 * Prints: "cfg_apply_all[MODULE]:TR069 doing configuration setting!" while that
 *     value is 1; the lines of cfg_getint() if it cannot be read. */
ZAN_API int cfg_apply_all(void);

/* Applies the stored configuration of the firewall, whatever that value is. */
ZAN_API int cfg_apply_firewall_event(void);

/* -------------------------------------------------------------------------- */
/* Subscriptions                                                              */
/* -------------------------------------------------------------------------- */

/* Requests to ZAN_MODULE_CORE. The daemon then sends notifications, which reach
 * the handlers by the receive thread or by zan_recv_notify_msq(). They use no
 * heap and less than 8 KB of stack.
 *
 * Returns: 1; ZAN_ERR for a null argument or a failed wait; ZAN_ERR_SEND; or
 *     the daemon's negative result.
 * Prints: if the send fails, the line of zan_msg_send(), "FUNCTION:zan_msg_send
 *     fail!" and "FUNCTION: pid=PID"; the lines of zan_msg_recv() if the wait
 *     fails or is interrupted.
 * Locks: the API lock, from before the send until the answer has arrived.
 * Blocks: while another thread makes a request, while the daemon's request
 *     queue is full, and until the daemon answers, without a time limit.
 * Hazard: while the daemon's answer is awaited, notifications that arrive are
 *     consumed and lost, because they have the same class. A receive thread for
 *     ZAN_CLASS_NOTIFY takes the answer instead. Subscribe before changes
 *     matter and before that thread starts; unsubscribe after it is cancelled.
 */

/* Watch a value or a subtree, or stop watching it. option and the low byte of
 * flag are settings that are passed to the daemon. A path of more than 1023
 * characters (1024 to unregister) is cut but keeps its full length in the
 * record, filled with zeros; a path whose length exceeds the record cannot be
 * sent.
 *
 * Returns: ZAN_ERR also for an option of 256 or more; nothing is sent then.
 * Prints: the warning of zan_strcpy() if the path is cut. */
ZAN_API int zan_notify_register_value_changed(const char *path, unsigned int option, int flag);
ZAN_API int zan_notify_unregister_value_changed(const char *path);

/* Subscribe to an event code, or unsubscribe from it. */
ZAN_API int zan_notify_register_event(int event);
ZAN_API int zan_notify_unregister_event(int event);

/* -------------------------------------------------------------------------- */
/* Handlers                                                                   */
/* -------------------------------------------------------------------------- */

/* A handler runs in the thread that dispatches the record. Its result is
 * ignored. Its arguments are valid until it returns. A null pointer removes a
 * handler.
 *
 * Locks: none. Install handlers before the receive thread starts. */

/* Install the handlers for value changes, events, direct messages and
 * broadcasts, and task-manager messages. If both value-changed handlers are
 * installed, both are called.
 *
 * Hazard: under zan_thread_create() a handler runs with the queue lock held.
 *     zan_send(), zan_send_with_ack() and zan_send_all() in it deadlock;
 *     requests for configuration do not. Note what happened and send it from
 *     another thread, or receive with zan_thread_create_wo_lock(). A handler
 *     for records from the daemon link must not wait for an answer on that
 *     link. */
ZAN_API void zan_set_value_changed_handler(zan_value_changed_fn fn);
ZAN_API void zan_set_value_changed_handler2(zan_value_changed2_fn fn);
ZAN_API void zan_set_event_handler(zan_event_fn fn);
ZAN_API void zan_set_message_handler(zan_message_fn fn);
ZAN_API void zan_set_taskmgr_msg_handler(zan_taskmgr_fn fn);

/* Hands one record to the handler of its class. A message handler's len never
 * exceeds the storage after data, whatever the record says.
 *
 * Returns: 1 if a handler was called, else 0.
 * Prints: "receive unknown module message[TYPE]" for a class that has no
 *     handler. */
ZAN_API int zan_process_data(zan_body *body);

/* -------------------------------------------------------------------------- */
/* Receive thread                                                             */
/* -------------------------------------------------------------------------- */

/* Starts the detached receive thread, which takes records of type mtype from
 * the module's queue and dispatches them. The thread ends at once if the module
 * has no queue, and after four receive errors in a row. zan_thread_create()
 * polls every 100 ms; zan_thread_create_wo_lock() waits in the kernel.
 *
 * Returns: 0, or the error number of the step that failed.
 * Prints: on failure "Initial pthread attribution error, errno: REASON.",
 *     "Setting pthread attribution error, errno: REASON." or "API: Create trap
 *     handler thread failed."; the thread itself "FUNCTION: mtype=TYPE
 *     g_msq_qid=QID-------------------->" when it starts, and after each
 *     receive error "API: receive msq message error, msgid: QID. Error:REASON
 *     count=N", with N from 0 to 3, after the lines of zan_msg_recv_no_wait()
 *     or, for zan_thread_create_wo_lock(), zan_msg_recv().
 * Locks: zan_thread_create() initialises the queue lock, and its thread holds
 *     that lock around each receive and dispatch. zan_thread_create_wo_lock()
 *     takes no lock.
 * Hazard: a thread that receives ZAN_CLASS_NOTIFY also takes the answers to
 *     subscription requests, which then wait forever. Subscribe before it
 *     starts, and unsubscribe after it is cancelled. The thread of
 *     zan_thread_create_wo_lock() can also take the acknowledgement that a
 *     direct message waits for; send with zan_send(), which needs none. */
ZAN_API int zan_thread_create(int mtype);
ZAN_API int zan_thread_create_wo_lock(int mtype);

/* Cancels the thread that was started last. The thread ends while it waits or
 * before its next record, never inside a handler or while it holds the lock. It
 * may still be ending when the call returns.
 *
 * Returns: 0, or ESRCH if there is no thread. */
ZAN_API int zan_thread_cancel(void);

/* -------------------------------------------------------------------------- */
/* Polling                                                                    */
/* -------------------------------------------------------------------------- */

/* Each function takes one record from the module's own queue and hands it to
 * the handler of its class. The class is the queue type: ZAN_CLASS_NOTIFY for
 * notifications, ZAN_CLASS_MESSAGE for direct messages, ZAN_CLASS_BROADCAST for
 * messages to all modules.
 *
 * Returns: 1 if a handler was called; 0 if none was, if no record was waiting,
 *     or after a receive error; -1 if the module has no queue.
 * Locks: none. The handler runs in the calling thread. */

/* Takes a waiting record of type msgtyp, as msgrcv() takes it (0: any type), of
 * at most max bytes, into msg. msg has room for mtype and max bytes; nothing
 * after them is read or written. Bytes after those received may be set to zero.
 *
 * Prints: "zan_client_recv_msq_no_wait: receive msq message error, msgid: QID.
 *     Error:REASON" after the line of zan_msg_recv_no_wait() if the receive
 *     fails. */
ZAN_API int zan_client_recv_msq_no_wait(zan_msg *msg, int msgtyp, int max);

/* Waits for a record of type msgtyp and takes it, with msg and max as in
 * zan_client_recv_msq_no_wait().
 *
 * Returns: 0 also if signal handlers interrupt the wait twice.
 * Prints: the lines of zan_msg_recv() if the receive fails or is interrupted;
 *     then "zan_client_recv_msq2: receive msq message error, msgid: QID.
 *     Error:REASON" unless it was interrupted.
 * Blocks: until a record arrives, without a time limit. */
ZAN_API int zan_client_recv_msq2(zan_msg *msg, int msgtyp, int max);

/* Take a waiting direct message, or a waiting notification, into storage of
 * their own: 38 KB of stack. zan_recv_msq() takes ZAN_CLASS_MESSAGE only: it
 * never delivers a broadcast, which is ZAN_CLASS_BROADCAST and needs
 * zan_client_recv_msq_no_wait(), or a receive thread of that class.
 *
 * Prints: if the module has no queue, "FUNCTION:receive msq message error,
 *     msgid: QID. Error:REASON", unless errno is ENOMSG from an earlier call;
 *     if the receive fails, "zan_client_recv_msq_no_wait: receive msq message
 *     error, msgid: QID. Error:REASON" after the line of
 *     zan_msg_recv_no_wait(). */
ZAN_API int zan_recv_msq(void);
ZAN_API int zan_recv_notify_msq(void);

/* -------------------------------------------------------------------------- */
/* Direct messages                                                            */
/* -------------------------------------------------------------------------- */

/* A message has up to 1024 bytes; a longer one is cut. The daemon forwards it
 * to the message handler of the module with that name, or of all modules.
 *
 * Returns: ZAN_ERR for a null module, a negative len, or null data with a len
 *     above 0. */

/* Send over the queue: zan_send() to one module without acknowledgement,
 * zan_send_with_ack() to one module, zan_send_all() to all modules. A message
 * to all modules has the class ZAN_CLASS_BROADCAST. They take 36 KB of stack.
 *
 * Returns: zan_send() 0, the others 1 when the daemon has acknowledged the
 *     message; the daemon's negative result; or -1 if the send or the wait
 *     fails.
 * Prints: "zan_msq_send send failed" after the line of zan_msg_send() if the
 *     send fails.
 * Locks: the queue lock, from before the send until the message is sent or
 *     acknowledged.
 * Blocks: while another thread holds the queue lock, and while the daemon's
 *     request queue is full; the queue lock is held meanwhile.
 *     zan_send_with_ack() and zan_send_all() also wait for the acknowledgement.
 *     There is no time limit.
 * Hazard: if the send fails, the queue lock stays held, provided that
 *     zan_thread_create() has initialised it. The receive thread and every
 *     later send over the queue then block. Call zan_msq_unlock() after such a
 *     failure: a negative result of zan_send() with valid arguments is one, and
 *     the others print the line above. While zan_send_with_ack() or
 *     zan_send_all() waits, other records of its class are consumed and lost:
 *     use zan_send() where an answer may arrive. */
ZAN_API int zan_send(const char *module, const void *data, int len);
ZAN_API int zan_send_with_ack(const char *module, const void *data, int len);
ZAN_API int zan_send_all(const char *module, const void *data, int len);

/* Send over the daemon link of a registered agent and wait for the
 * acknowledgement. If the link does not take the message, zan_send_all_agent()
 * falls back to zan_send_all().
 *
 * Returns: 1 when the daemon has acknowledged the message; a negative result of
 *     the daemon; ZAN_ERR_TIMEOUT; or the result of the failed send, 0 or
 *     negative, for zan_send_all_agent() that of zan_send_all().
 * Prints: if the send fails, the lines of zan_socket_send() or "zan_ipc_send:
 *     retry fail!", and "zan_ipc_send send failed"; zan_send_all_agent()
 *     instead of the latter "zan_ipc_send send failed! Try zan_send_all ..."
 *     and then "zan_send_all ok!" or "zan_send_all fail!".
 * Locks: none. One thread only may use the link.
 * Blocks: until the acknowledgement arrives, 60 seconds at most for each piece
 *     of a record. */
ZAN_API int zan_send_agent(const char *module, const void *data, int len);
ZAN_API int zan_send_all_agent(const char *module, const void *data, int len);

/* -------------------------------------------------------------------------- */
/* Event messages                                                             */
/* -------------------------------------------------------------------------- */

/* Modules send each other events as flat JSON objects of strings, with
 * zan_send(). The text does not say which event it is: sender and receiver have
 * agreed on that. cJSON reads and prints the text.
 *
 * Locks: none. Any thread may call these functions. They use the heap. */

/* A row for each event: its kind, what the names of its two functions end in,
 * and the keys of its members in order. EVENT is a macro (kind, name, keys...).
 */
#define ZAN_EVENTS(EVENT)                                                                          \
    EVENT(easymesh, easymesh_event_msg, "Type", "Action", "ALMACAddress", "Value")                 \
    EVENT(palumesh, palumesh_event_msg, "Type", "Action", "Value")                                 \
    EVENT(wan, wan_event_msg, "IP", "Mask", "Gateway", "DNS", "Interface")                         \
    EVENT(wifi_sniffer, wifi_sniffer_event_msg, "Action")                                          \
    EVENT(ser2net, ser2net_event_msg, "Action", "CFGPath")                                         \
    EVENT(firewall, firewall_event_msg, "Function", "Action", "CFGPath", "Value")                  \
    EVENT(neighbor, kelso_neighbor_info, "SerialNumber", "Ssid", "Bssid24G", "Bssid5G",            \
          "Channel24G", "Channel5G")

/* Encoders print the object without spaces, with the members in the order of
 * the arguments, cut at size-1 characters and ended by a NUL. A null argument
 * leaves its member out. With size 0, or a null out, nothing is written. If
 * memory runs out the text is empty.
 *
 * Decoders copy each member of the text into its buffer, cut at size-1
 * characters and ended by a NUL; a member that is not a string is copied as an
 * empty text. A null buffer and one of size 0 are skipped. The buffer of a
 * missing member is unchanged, so clear it before. Keys match in any case and
 * any order, the first of two equal ones counts; other members, and anything
 * after the object, are ignored.
 *
 * Returns: encoders 0 always; decoders 0, or -1 if the text is null or does not
 *     parse, or if memory runs out.
 * Prints: decoders "FUNCTION:cJSON format error..." if they return -1. */
ZAN_API int encode_easymesh_event_msg(const char *type, const char *action, const char *al_mac,
                                      const char *value, char *out, unsigned int size);
ZAN_API int decode_easymesh_event_msg(char *type, unsigned int type_size, char *action,
                                      unsigned int action_size, char *al_mac,
                                      unsigned int al_mac_size, char *value,
                                      unsigned int value_size, const char *text);

ZAN_API int encode_palumesh_event_msg(const char *type, const char *action, const char *value,
                                      char *out, unsigned int size);
ZAN_API int decode_palumesh_event_msg(char *type, unsigned int type_size, char *action,
                                      unsigned int action_size, char *value,
                                      unsigned int value_size, const char *text);

ZAN_API int encode_wan_event_msg(const char *ip, const char *mask, const char *gateway,
                                 const char *dns, const char *interface, char *out,
                                 unsigned int size);
ZAN_API int decode_wan_event_msg(char *ip, unsigned int ip_size, char *mask, unsigned int mask_size,
                                 char *gateway, unsigned int gateway_size, char *dns,
                                 unsigned int dns_size, char *interface,
                                 unsigned int interface_size, const char *text);

ZAN_API int encode_wifi_sniffer_event_msg(const char *action, char *out, unsigned int size);
ZAN_API int decode_wifi_sniffer_event_msg(char *action, unsigned int action_size, const char *text);

ZAN_API int encode_ser2net_event_msg(const char *action, const char *cfg_path, char *out,
                                     unsigned int size);
ZAN_API int decode_ser2net_event_msg(char *action, unsigned int action_size, char *cfg_path,
                                     unsigned int cfg_path_size, const char *text);

ZAN_API int encode_firewall_event_msg(const char *function, const char *action,
                                      const char *cfg_path, const char *value, char *out,
                                      unsigned int size);
ZAN_API int decode_firewall_event_msg(char *function, unsigned int function_size, char *action,
                                      unsigned int action_size, char *cfg_path,
                                      unsigned int cfg_path_size, char *value,
                                      unsigned int value_size, const char *text);

ZAN_API int encode_kelso_neighbor_info(const char *serial_number, const char *ssid,
                                       const char *bssid_24g, const char *bssid_5g,
                                       const char *channel_24g, const char *channel_5g, char *out,
                                       unsigned int size);
ZAN_API int decode_kelso_neighbor_info(char *serial_number, unsigned int serial_number_size,
                                       char *ssid, unsigned int ssid_size, char *bssid_24g,
                                       unsigned int bssid_24g_size, char *bssid_5g,
                                       unsigned int bssid_5g_size, char *channel_24g,
                                       unsigned int channel_24g_size, char *channel_5g,
                                       unsigned int channel_5g_size, const char *text);

/* -------------------------------------------------------------------------- */
/* System actions                                                             */
/* -------------------------------------------------------------------------- */

/* Requests to ZAN_MODULE_ACTION, always 1136 bytes long. With a wait of 0 they
 * return once the request is sent; the answer stays on the module's queue until
 * a poll or a receive thread takes it. Otherwise they wait for the answer. A
 * negative param is sent as 0. A name of more than 1023 characters is cut. They
 * take 38 KB of stack.
 *
 * Returns: 1; ZAN_ERR if the wait fails; ZAN_ERR_SEND; or the daemon's negative
 *     result.
 * Prints: "zan_fad_send:zan_msg_send fail!" after the line of zan_msg_send() if
 *     the send fails; the lines of zan_msg_recv() if the wait fails or is
 *     interrupted; the warning of zan_strcpy() if the name is cut.
 * Locks: none.
 * Blocks: while the daemon's request queue is full, and with a wait other than
 *     0 until the daemon answers. There is no time limit.
 * Hazard: two actions that wait at the same time can each consume the answer to
 *     the other, which then waits forever. So can anything else that receives
 *     ZAN_CLASS_ACTION or any type, such as a receive thread. Wait for one
 *     action at a time, and receive nothing of that class meanwhile. */

/* Sends any action: cmd is the action code, and so is code, which travels in
 * the payload. The functions below call it. name may be null. */
ZAN_API int zan_fad_send(int cmd, int wait, int param, int code, const char *name);

/* Upgrade the firmware or the configuration from a file.
 *
 * Returns: ZAN_ERR_REFUSED for a null filename.
 * Prints: "fad: filename can not be empty" for a null filename. */
ZAN_API int zan_upgrade_firmware(int wait, int param, const char *filename);
ZAN_API int zan_upgrade_config(int wait, int param, const char *filename);

/* Save the configuration, reset the device to its defaults
 * (zan_factory_reset_wo_wifi() keeps the Wi-Fi settings), or back up the
 * configuration. name may be null. */
ZAN_API int zan_save_config(int wait, int param);
ZAN_API int zan_save_config2(int wait, int param);
ZAN_API int zan_factory_reset(int wait, int param, const char *name);
ZAN_API int zan_factory_reset_wo_wifi(int wait, int param, const char *name);
ZAN_API int zan_backup_config(int wait, int param, const char *name);
ZAN_API int zan_backup_old_config(int wait, int param, const char *name);

/* Runs a shell command, cut at 511 characters.
 *
 * Returns: ZAN_ERR_REFUSED for a null fmt.
 * Prints: "fad: unable to run null shell commad!" for a null fmt. */
ZAN_API int zan_run_shell(int wait, int param, const char *fmt, ...) ZAN_PRINTF(3, 4);

/* Reboots the device.
 *
 * Blocks: first while the shell command "appmgrcmd del sipapp" runs in the
 *     calling process. */
ZAN_API int zan_reboot(int wait);

/* Saves the log. It never waits for the answer. */
ZAN_API int zan_save_log(void);

/* Takes one waiting record of any type from the module's queue and dispatches
 * it.
 *
 * Returns: 1 if a handler was called; 0 if none was, if no record was waiting,
 *     or after a receive error; -1 if the module has no queue.
 * Prints: "zan_fad_recv_msq:receive msq message error, msgid: QID.
 *     Error:REASON" if the module has no queue; "zan_client_recv_msq_no_wait:
 *     receive msq message error, msgid: QID. Error:REASON" after the line of
 *     zan_msg_recv_no_wait() if the receive fails.
 * Blocks: never.
 * Hazard: it also takes the answer that another thread's request waits for. Do
 *     not call it while another thread makes requests. */
ZAN_API int zan_fad_recv_msq(void);

/* Reports the result of an event that the module handled.
 *
 * Returns: 0, or ZAN_ERR_SEND.
 * Prints: "zan_report_event_result:zan_msg_send fail!" after the line of
 *     zan_msg_send() if the send fails.
 * Blocks: while the daemon's request queue is full, without a time limit. */
ZAN_API int zan_report_event_result(int event, int result);

/* -------------------------------------------------------------------------- */
/* Firewall                                                                   */
/* -------------------------------------------------------------------------- */

/* Each function composes a "firewall_cntl" command line, cut at 1024
 * characters, and sends it to the daemon without waiting for an answer. Each
 * argument fills the option of its letter; p, a and k may be null and are then
 * left out. They take 38 KB of stack.
 *
 * Returns: 0; -1 for a null argument that is needed; or ZAN_ERR_SEND.
 * Prints: "FUNCTION: cmd_line=LINE" and "FUNCTION:zan_msg_send fail!" after the
 *     line of zan_msg_send() if the send fails.
 * Locks: none.
 * Blocks: while the daemon's request queue is full, without a time limit. */

/* Compose "firewall_cntl -f F" with -p P, -a A or -k K. */
ZAN_API int zan_firewall_request(const char *f, const char *p);
ZAN_API int zan_firewall_request2(const char *f, const char *p, const char *a);
ZAN_API int zan_firewall_request4(const char *f, const char *k);

/* Composes "firewall_cntl -C TEXT", with the formatted text. */
ZAN_API int zan_firewall_request3(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* Composes "firewall_cntl -b -p P -i I -m M". p and i are needed. */
ZAN_API int zan_firewall_l2b_notify(const char *p, const char *i, int m);

/* Waits for the next record of any type on the module's queue and dispatches
 * it.
 *
 * Returns: 1 if a handler was called; 0 if none was, if signal handlers
 *     interrupted the wait twice, or after a receive error; -1 if the module
 *     has no queue.
 * Prints: the lines of zan_msg_recv() if the receive fails or is interrupted;
 *     then "zan_client_recv_msq2: receive msq message error, msgid: QID.
 *     Error:REASON" unless it was interrupted.
 * Blocks: until a record arrives, without a time limit.
 * Hazard: it also takes the answer that another thread's request waits for. Do
 *     not call it while another thread makes requests. */
ZAN_API int zan_firewall_recv_msq(void);

/* -------------------------------------------------------------------------- */
/* Remote management                                                          */
/* -------------------------------------------------------------------------- */

/* Requests to ZAN_MODULE_CWMP. Sending a request and collecting its answer are
 * separate calls; a module may do other work in between. They take 38 KB of
 * stack.
 *
 * Locks: none. One thread of the process makes these requests. */

/* Sends len bytes, or that many zeros if data is null.
 *
 * Returns: 1; -1 if len is negative or above ZAN_DATA_SIZE; or ZAN_ERR_SEND.
 * Prints: "zan_do_cwmp_request:zan_msg_send fail!" after the line of
 *     zan_msg_send() if the send fails.
 * Blocks: while the daemon's request queue is full, without a time limit. */
ZAN_API int zan_do_cwmp_request(int cmd, const void *data, int len);

/* Waits for the answer to cmd and copies its payload to resp->data, with a NUL
 * after it unless it fills the area, and its length to resp->len. Answers to
 * other commands are consumed and lost.
 *
 * Returns: 1; 0 if the answer's arg is 1; or a negative result, which leaves
 *     resp unchanged: the daemon's, or -1 if the receive fails.
 * Prints: the lines of zan_msg_recv() if the receive fails or is interrupted.
 * Blocks: until the answer arrives, without a time limit. */
ZAN_API int zan_cwmp_recv(int cmd, zan_resp *resp);

/* Take a waiting direct message, or a waiting notification, and dispatch it:
 * zan_recv_msq() and zan_recv_notify_msq() under other names.
 *
 * Returns: 1 if a handler was called; 0 if none was, if no record was waiting,
 *     or after a receive error; -1 if the module has no queue.
 * Prints: if the module has no queue, "FUNCTION:receive msq message error,
 *     msgid: QID. Error:REASON", unless errno is ENOMSG from an earlier call;
 *     if the receive fails, "zan_client_recv_msq_no_wait: receive msq message
 *     error, msgid: QID. Error:REASON" after the line of
 *     zan_msg_recv_no_wait(). */
ZAN_API int zan_cwmp_recv_msq(void);
ZAN_API int zan_cwmp_recv_notify_msq(void);

/* -------------------------------------------------------------------------- */
/* Logging                                                                    */
/* -------------------------------------------------------------------------- */

/* The level and destination of every module are in one table of shared memory,
 * which all processes of the device attach and any may change at any time. The
 * table has ZAN_LOG_ENTRIES entries, which are never freed. */

/* Enter the module into the table, or give its entry new settings: level and
 * dest, unless the configuration tree has a value other than 0 at ZAN_LOG_TREE
 * "/NAME/loglevel" and ZAN_LOG_TREE "/NAME/logdest". So the tree cannot set
 * level 0. The first registration on the device creates the table and writes
 * its key to "/tmp/ipc_used". A cpu flag of exactly 1 sends the 128 bytes
 * "cpu_test NAME PID" to the module "SEHD" with zan_send().
 *
 * Returns: 1, also if the table is full and nothing was done; 0 for a null name
 *     or if there is no table.
 * Prints: "shmget: REASON" or "shmat: REASON" on standard error if there is no
 *     table; the lines of cfg_getint() if a value cannot be read; those of
 *     zan_send() if that fails.
 * Locks: the API lock, during each of two configuration requests; the queue
 *     lock for the message to "SEHD". No lock guards the table: register before
 *     other threads log.
 * Blocks: until the daemon has answered the requests, without a time limit.
 * Hazard: names are cut to 31 characters in the table, so a longer one is never
 *     found again and takes another entry each time: use short names. Two
 *     processes that register at the same moment may take the same entry. The
 *     first registration on the device creates the table and then clears it, so
 *     an entry that another process makes in between is lost; a table whose
 *     segment has the id 0 is replaced, or cleared if it cannot be removed, by
 *     the next process that registers for the first time. Start modules one
 *     after the other. A cpu flag of 1 brings the hazard of zan_send(). */
ZAN_API int zan_log_init(const char *name, int level, int dest);
ZAN_API int zan_log_init_cpu(const char *name, int level, int dest, int cpu);
ZAN_API int __zan_log_init(const char *name, int level, int dest, int cpu);

/* Finds the module's entry in the table, to read or to change.
 *
 * Returns: the entry, valid for as long as the process runs; null if there is
 *     none or if this process has registered no module. The empty name finds
 *     the first free entry. */
ZAN_API zan_log_entry *zan_get_log_level(const char *name);

/* Writes a message of module `name`, or of the module that this process
 * registered last if `name` is null. A message goes to syslog twice, with
 * priority 192: before it an empty one, or under ZAN_LOG_ALL the message with
 * each "%%" in it shown as "%". Files are appended to: "/var/log/NAME", with
 * `name` as it was passed, "(null)" if that is null. Messages are cut at 4095
 * characters, for syslog at 2047. It keeps "/dev/console" open from the first
 * call on.
 *
 * Returns: 1, also if the level or the destination filters the message out, and
 *     if a terminal or file cannot be opened; 0 without writing if fmt is null,
 *     if this process has registered no module, if the module is not in the
 *     table, or if "/dev/console" cannot be opened.
 * Locks: none. Threads may log at the same time.
 * Blocks: while a terminal does not take the line.
 * Hazard: a name that contains "/" leaves the directory "/var/log", and control
 *     characters of a message reach terminals and files. Let neither come from
 *     outside the module. */
ZAN_API int zan_log(const char *name, int level, const char *fmt, ...) ZAN_PRINTF(3, 4);

/* Formats the local time as "hh:mm:ss".
 *
 * Returns: one buffer of the process. Each call overwrites it, and so does each
 *     message that is written elsewhere than to syslog alone. */
ZAN_API char *zan_log_get_current_time_str(void);

/* -------------------------------------------------------------------------- */
/* Mesh agents                                                                */
/* -------------------------------------------------------------------------- */

/* A mesh agent is a module that reaches the daemon over a TCP connection, the
 * daemon link, in addition to its queue. */

/* Reads four configuration values that say whether the device is an enabled
 * mesh agent whose topology is settled.
 *
 * Returns: 1 if it is, else 0.
 * Prints: if it is not, "zan_mesh_status:mesh_enable=N role=ROLE",
 *     "zan_mesh_status:Topology is optimizing.." or "zan_mesh_status:Mapd is
 *     initializing..."; the lines of cfg_getint() if a value cannot be read.
 * Locks: the API lock, during each of the four requests.
 * Blocks: until the daemon has answered four requests, without a time limit. */
ZAN_API int zan_mesh_status(void);

/* Registers this process as an agent over a new daemon link, whose socket is
 * also in g_ipc_handle. It calls zan_mesh_status() first, and tries to open the
 * link up to four times, 200 ms apart.
 *
 * Returns: the socket, which may be 0; ZAN_ERR for a null name or if the link
 *     is lost during the wait; ZAN_ERR_MESH; ZAN_ERR_CREATE; ZAN_ERR_SEND;
 *     ZAN_ERR_TIMEOUT; or the daemon's negative result.
 * Prints: the line of zan_mesh_status() and "zan_register_agent: module=NAME
 *     pid=PID fail by mesh not ready" if the mesh is not ready; the lines of
 *     zan_socket_create() for each failed attempt; the lines of
 *     zan_socket_send() or "zan_ipc_send: retry fail!" if the send fails.
 * Blocks: until the daemon has answered the requests of zan_mesh_status(),
 *     without a time limit; up to 3 seconds to open the link; and 60 seconds at
 *     most for each piece of the answer.
 * Hazard: it releases the API lock without having taken it, even if another
 *     thread holds it. Let no other thread make requests meanwhile. */
ZAN_API int zan_register_agent(const char *name, int pid);

/* Unregisters the agent, whether or not the daemon agrees, and closes the link.
 * g_ipc_handle keeps its value.
 *
 * Returns: 0; ZAN_ERR for a null name; ZAN_ERR_MESH; ZAN_ERR_SEND; or
 *     ZAN_ERR_REMOVE if the busy flag of the link stays set.
 * Prints: the line of zan_mesh_status() and "zan_unregister_agent: module=NAME
 *     pid=PID fail by mesh not ready" if the mesh is not ready; the lines of
 *     zan_socket_send() or "zan_ipc_send: retry fail!" if the send fails.
 * Locks: the API lock, from before the send until the link is closed.
 * Blocks: until the daemon has answered the requests of zan_mesh_status(),
 *     without a time limit; and 60 seconds at most for each piece of the
 *     answer.
 * Hazard: when it returns ZAN_ERR_REMOVE, it has released the API lock twice,
 *     which can release it under another thread. Let no other thread make
 *     requests meanwhile. */
ZAN_API int zan_unregister_agent(const char *name, int pid);

/* -------------------------------------------------------------------------- */
/* Records on the daemon link                                                 */
/* -------------------------------------------------------------------------- */

/* Answers and unsolicited records share one stream. Records that arrive while
 * an answer is awaited are set aside, and the next zan_client_recv() delivers
 * them.
 *
 * Locks: none. One thread only may use the link. */

/* Reads what the link has into the record being received.
 *
 * Returns: 1 if the record is complete; 0 if it is not; -1 on an error, if the
 *     peer has closed the connection, or if the record would take 2 MiB or
 *     more.
 * Prints: "zan_api_recv_data calloc memory failed" or "zan_api_recv_data
 *     realloc memory failed" if memory runs out.
 * Hazard: a header that arrives in pieces counts as a complete record, result
 *     1, if no length is known, and otherwise stays in network byte order.
 *     After a refused record every later read of that link fails or only fills
 *     the buffer; call zan_register_agent() to open a new link. An EAGAIN or
 *     EINTR that an earlier call left in errno makes a closed connection read
 *     as 0, once; set errno to 0 before the call. */
ZAN_API int zan_api_recv_data(int fd);

/* Waits on the link for the answer (type, cmd). Only ZAN_CFG_GET answers with
 * text: resp->ptr points to it and resp->len is its length, until the next
 * record is received. err and resp may be null.
 *
 * Returns: 1; the answer's negative result, with its text in err (1024 bytes);
 *     ZAN_ERR_TIMEOUT if no answer arrives in time, if a signal handler
 *     interrupts the wait, or if there is no link; or -1 if the link fails.
 * Prints: the lines of zan_api_recv_data() if memory runs out; the line of
 *     zan_request_empty_message() if records were set aside and that request
 *     fails.
 * Blocks: 60 seconds at most for each piece of a record; 50 seconds for dump,
 *     print and convert. */
ZAN_API int zan_client_recv_response(int type, int cmd, char *err, zan_resp *resp);

/* Delivers the records that were set aside, or else receives from fd and
 * dispatches the record when it is complete. Call it from a select loop when fd
 * is readable.
 *
 * Returns: 0 after delivering records that were set aside, and when the record
 *     is not complete; -1 on an error. Otherwise it copies the first bytes of
 *     the record, header first, to buf, as many as the payload has but at most
 *     size, and returns their number; or 1 if buf is null or size is below 1.
 * Prints: the lines of zan_api_recv_data() if memory runs out. */
ZAN_API int zan_client_recv(int fd, char *buf, int size);

/* Asks the daemon for a record that wakes the module's select loop.
 *
 * Returns: the bytes sent, or 0.
 * Prints: "zan_request_empty_message failed" after the lines of
 *     zan_socket_send() or "zan_ipc_send: retry fail!" if the send fails. */
ZAN_API int zan_request_empty_message(void);

/* -------------------------------------------------------------------------- */
/* Values over the daemon link, and command lines                             */
/* -------------------------------------------------------------------------- */

/* These functions take 38 KB of stack. Those that read use the heap. */

/* Read a value over the daemon link of an agent, with path, value and size as
 * in cfg_getstr(). They call zan_mesh_status() first.
 *
 * Returns: ctl_getstr() 1; ZAN_ERR for a null format or if the link fails;
 *     ZAN_ERR_MESH; ZAN_ERR_TIMEOUT; the result of the failed send, 0 or
 *     negative; or the daemon's negative result. ctl_getint() the number, or 0
 *     if the value cannot be read.
 * Prints: the line of zan_mesh_status() and "ctl_getstr: fail by mesh not
 *     ready" if the mesh is not ready; the lines of zan_socket_send() or
 *     "zan_ipc_send: retry fail!" if the send fails; the warning of
 *     zan_strcpy() if the value is cut. ctl_getint() also "cfg_getint failed
 *     for PATH" if the value cannot be read.
 * Locks: the API lock, during the requests of zan_mesh_status(), and then from
 *     before the send until the answer has been copied out. One thread only may
 *     use the link.
 * Blocks: until the daemon has answered the requests of zan_mesh_status(),
 *     without a time limit; and 60 seconds at most for each piece of the
 *     answer. */
ZAN_API int ctl_getstr(char *value, int size, const char *fmt, ...) ZAN_PRINTF(3, 4);
ZAN_API int ctl_getint(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* Hands the daemon a command line and does not wait for an answer. A line of
 * more than 1024 characters is cut. It uses no heap.
 *
 * Returns: 0; ZAN_ERR for null; or ZAN_ERR_SEND.
 * Prints: "zan_ctl_request:zan_msg_send fail! cmdline=CMDLINE", with the whole
 *     line, after the line of zan_msg_send() if the send fails; the warning of
 *     zan_strcpy() if the line is cut.
 * Blocks: while the daemon's request queue is full, without a time limit. */
ZAN_API int zan_ctl_request(const char *cmdline);

/* -------------------------------------------------------------------------- */
/* Sockets                                                                    */
/* -------------------------------------------------------------------------- */

/* The daemon link is a stream between a module and the daemon; module links
 * carry datagrams between modules. Both exist over IPv4 and over local sockets
 * below /tmp. Modules use the zan_ipc_ and ipc_ functions, which add a busy
 * flag to those over IPv4.
 *
 * A stream socket that takes only part of a message keeps the rest on the heap.
 * The next send on that socket sends the rest first. If only part of the rest
 * goes, that send returns 0 and drops its own message; if nothing of it goes,
 * it returns -3.
 *
 * Returns: the socket, or -1 (create functions); the result of the system call
 *     (other functions).
 * Locks: none. Only the busy flag of the zan_ipc_ and ipc_ functions protects
 *     against other threads. */

/* -------------------------------------------------------------------------- */
/* Sockets: serialised                                                        */
/* -------------------------------------------------------------------------- */

/* These are the functions over IPv4 behind one busy flag of the process: the
 * zan_ipc_ functions for the daemon link, the ipc_ functions for module links.
 * A call that finds the flag set waits until it is clear. The create functions
 * and ipc_get_module_addr() do not use the flag.
 *
 * Returns: the result of the function without the flag; -1 also if the flag
 *     stays set.
 * Prints: the lines of the function without the flag.
 * Blocks: as the function without the flag, and up to 1.2 seconds (six times
 *     200 ms) while the flag is set.
 * Hazard: a receive that blocks keeps the flag set, so sends of other threads
 *     fail. Receive on a non-blocking socket, or when select() says that it is
 *     readable. */

/* Switches the busy flag on, or with 0 off: every call then goes through at
 * once. */
ZAN_API void zan_ipc_enable_lock(unsigned char flag);

/* Creates one end of the daemon link with zan_socket_create(). unused is
 * ignored. */
ZAN_API int zan_ipc_create(const char *name, int unused);

/* Send over the daemon link with zan_socket_send() and zan_socket_send_to().
 *
 * Prints: zan_ipc_send() "zan_ipc_send: retry fail!" if the flag stays set. */
ZAN_API int zan_ipc_send(int fd, const void *data, int len);
ZAN_API int zan_ipc_send_to(int fd, const void *data, int len, const struct sockaddr_in *to);

/* Receive from the daemon link with zan_socket_recv() and
 * zan_socket_try_recv(). */
ZAN_API int zan_ipc_recv(int fd, void *buf, int len);
ZAN_API int zan_ipc_try_recv(int fd, void *buf, int len);

/* Receives from the daemon link with zan_socket_recv_from().
 *
 * Hazard: if its timeout cannot be set, as on a descriptor that is not a
 *     socket, it receives nothing and returns 39, the length of the line that
 *     it prints. Pass only sockets. */
ZAN_API int zan_ipc_recv_from(int fd, void *buf, int len, struct sockaddr_in *from);

/* Closes the link with zan_socket_delete(). */
ZAN_API int zan_ipc_delete(int fd);

/* Create a module link with ipc_socket_create_server() and
 * ipc_socket_create_client(). */
ZAN_API int ipc_create_server(const char *module);
ZAN_API int ipc_create_client(void);

/* Send and receive a datagram. ipc_recv_from() also stores the sender's
 * address.
 *
 * Blocks: the receives until a datagram arrives, without a time limit. */
ZAN_API int ipc_send_to(int fd, const void *data, int len, const struct sockaddr_in *to);
ZAN_API int ipc_recv(int fd, void *buf, int len);
ZAN_API int ipc_recv_from(int fd, void *buf, int len, struct sockaddr_in *from);

/* Makes the address of a module's server with ipc_socket_get_addr().
 *
 * Returns: the port in network byte order, 0 if the module has no file. */
ZAN_API int ipc_get_module_addr(const char *module, struct sockaddr_in *addr);

/* -------------------------------------------------------------------------- */
/* Sockets: daemon link over TCP                                              */
/* -------------------------------------------------------------------------- */

/* Creates one end of the daemon link. With the name "ZAN", in any case, it
 * creates the daemon's listening socket, on all addresses, at the first free
 * port from 2679 to 65535, and writes the port to "/tmp/zan.socket"; restrict
 * who can reach it with a firewall. With any other name it connects a module to
 * the port in that file and the address in "/tmp/zan.socketip", or 192.168.0.1
 * if that is missing or empty, and makes up to five attempts 100 ms apart. A
 * module's end is non-blocking.
 *
 * Returns: the socket, or -1, with the socket closed unless stated otherwise.
 * Prints: "zan: write socket port file failed", "zan: can not get zan port" or
 *     "zan: can not connect to zan, port=PORT" if it fails, but nothing if no
 *     port is free; "socket ipc: set socket send timout failed" if the send
 *     timeout cannot be set, and then the socket stays open.
 * Blocks: 400 ms at most. */
ZAN_API int zan_socket_create(const char *name);

/* Send len bytes.
 *
 * Returns: the bytes sent; 0 if only part of an earlier rest was sent; -3 if
 *     nothing of it was sent; or -1.
 * Prints: "ipc socket send failed, REASON" if nothing was sent; "ipc socket:
 *     buffer maybe full" if part was sent. With a rest from an earlier send:
 *     "get failed packet buffer, start sending..." first, then "send failed
 *     buffer ret = COUNT" when all of it was sent, or "resend failed packet ret
 *     = RESULT, REASON" when nothing was. "set_snd_failed_buffer -
 *     new_failed_msg calloc memory failed" or "set_snd_failed_buffer -
 *     new_failed_msg->buffer calloc memory failed" if there is no memory for
 *     the rest, which is then lost.
 * Blocks: on the daemon's end 300 ms at most; on a module's end never. */
ZAN_API int zan_socket_send(int fd, const void *data, int len);
ZAN_API int zan_socket_send_to(int fd, const void *data, int len, const struct sockaddr_in *to);

/* Receives up to len bytes. zan_socket_try_recv() leaves them queued.
 *
 * Returns: the bytes received; 0 if the peer has closed the connection; or -1,
 *     on a module's end with EAGAIN if nothing is queued.
 * Blocks: on a blocking socket until data arrives; on a module's end never. */
ZAN_API int zan_socket_recv(int fd, void *buf, int len);
ZAN_API int zan_socket_try_recv(int fd, void *buf, int len);

/* Receives up to len bytes, and the sender's address.
 *
 * Returns: the bytes received, or -1.
 * Prints: "recvfrom err:ERRNO" if it fails; "socket option  SO_RCVTIMEO not
 *     support", with two spaces, if its timeout cannot be set.
 * Blocks: 3 seconds at most.
 * Hazard: if its timeout cannot be set, as on a descriptor that is not a
 *     socket, it receives nothing and returns 39, the length of the line that
 *     it prints. Pass only sockets. */
ZAN_API int zan_socket_recv_from(int fd, void *buf, int len, struct sockaddr_in *from);

/* Closes the socket and drops the rest of a message that is kept for it.
 *
 * Returns: 1.
 * Prints: "delete failed msg queue" if a rest was dropped. */
ZAN_API int zan_socket_delete(int fd);

/* Write and read the files of the daemon link: the port to "/tmp/zan.socket",
 * the port from it, and the first line of "/tmp/zan.socketip", cut at 31
 * characters, into the 32 bytes at out, which are unchanged if there is no such
 * file.
 *
 * Returns: zan_socket_write_port_file() 1, or 0 if it fails;
 *     zan_get_socket_port() the port, 2679 if there is no file.
 * Prints: "zan: write socket port file failed" if the file cannot be written;
 *     the warning of zan_strcpy() if the address is cut. */
ZAN_API int zan_socket_write_port_file(int port);
ZAN_API int zan_get_socket_port(void);
ZAN_API void zan_get_socket_ip(char *out);

/* -------------------------------------------------------------------------- */
/* Sockets: module links over UDP                                             */
/* -------------------------------------------------------------------------- */

/* Creates a module's UDP socket on the loopback address. A server takes the
 * first free port from 12000 to 65535 and writes it to "/tmp/MODULE.info".
 *
 * Returns: the socket, or -1, with the socket closed.
 * Prints: "zan: write socket port file failed" if a server cannot write its
 *     file; nothing if no port is free. */
ZAN_API int ipc_socket_create_server(const char *module);
ZAN_API int ipc_socket_create_client(void);

/* Receives up to len bytes, and the sender's address.
 *
 * Blocks: until a datagram arrives, without a time limit. */
ZAN_API int ipc_socket_recv_from(int fd, void *buf, int len, struct sockaddr_in *from);

/* Write and read a module's file, and make the module's address from it.
 * Without the file the port is 0.
 *
 * Returns: ipc_socket_write_port_file() 1, or 0 if it fails;
 *     ipc_get_socket_port() the port; ipc_socket_get_addr() the port in network
 *     byte order.
 * Prints: "zan: write socket port file failed" if the file cannot be written.
 */
ZAN_API int ipc_socket_write_port_file(const char *module, int port);
ZAN_API int ipc_get_socket_port(const char *module);
ZAN_API int ipc_socket_get_addr(const char *module, struct sockaddr_in *addr);

/* -------------------------------------------------------------------------- */
/* Sockets: local                                                             */
/* -------------------------------------------------------------------------- */

/* A socket file that no process listens on is removed and taken over. A path of
 * more than 107 characters is cut. Sends give up after 200 ms. */

/* Creates one end of the daemon link. With the name "ZAN", in any case, it
 * creates the daemon's listening socket "/tmp/NAME_INSTANCE.ls"; with any other
 * name it connects to "/tmp/ZAN_0.ls".
 *
 * Returns: the socket, or -1.
 * Prints: "Connect to zan local socket fail!!", without a newline, if a module
 *     cannot connect, and then the socket is closed; on the daemon's end the
 *     lines of ipc_lsocket_create_server(); "socket ipc: set socket send timout
 *     failed" if the send timeout cannot be set, and then the socket stays
 *     open. */
ZAN_API int zan_lsocket_create(const char *name, int instance);

/* Send len bytes. zan_lsocket_send_to() keeps the rest of a message of which
 * only part was sent; zan_lsocket_send() drops it.
 *
 * Returns: the bytes sent; 0 if only part of an earlier rest was sent; -3 if
 *     nothing of it was sent; or -1.
 * Prints: "ipc lsocket send failed, REASON" if nothing was sent; otherwise the
 *     lines of zan_socket_send(), but zan_lsocket_send() nothing about a rest
 *     that it drops.
 * Blocks: 200 ms at most. */
ZAN_API int zan_lsocket_send(int fd, const void *data, int len);
ZAN_API int zan_lsocket_send_to(int fd, const void *data, int len, const struct sockaddr_un *to);

/* Receive up to len bytes. zan_lsocket_try_recv() leaves them queued;
 * zan_lsocket_recv_from() also stores the sender's address.
 *
 * Blocks: until data arrives, without a time limit. */
ZAN_API int zan_lsocket_recv(int fd, void *buf, int len);
ZAN_API int zan_lsocket_try_recv(int fd, void *buf, int len);
ZAN_API int zan_lsocket_recv_from(int fd, void *buf, int len, struct sockaddr_un *from);

/* Closes the socket and drops the rest of a message that is kept for it.
 * Removes the socket file if the socket is the module link that this process
 * created last; earlier links leave theirs.
 *
 * Returns: 1.
 * Prints: "delete failed msg queue" if a rest was dropped. */
ZAN_API int zan_lsocket_delete(int fd);

/* Create a module link: "/tmp/MODULE_0.ls" for a server, "/tmp/MODULE_PID.ls"
 * for a client.
 *
 * Returns: the socket, or -1. On failure the socket stays open, and counts as
 *     the link created last.
 * Prints: "ZAN: Second instance already running" if a process listens on the
 *     file; "ZAN: removing old socket" if the file cannot be removed; "ZAN:
 *     bind error" if the socket cannot be bound even then; "socket ipc: set
 *     socket send timout failed" if the send timeout cannot be set; the warning
 *     of zan_strcpy() if the path is cut. */
ZAN_API int ipc_lsocket_create_server(const char *module);
ZAN_API int ipc_lsocket_create_client(const char *module);

/* Receives up to len bytes, and the sender's address.
 *
 * Blocks: until a datagram arrives, without a time limit. */
ZAN_API int ipc_lsocket_recv_from(int fd, void *buf, int len, struct sockaddr_un *from);

/* Makes the address of a module's server.
 *
 * Returns: 1.
 * Prints: the warning of zan_strcpy() if the path is cut. */
ZAN_API int ipc_lsocket_get_addr(const char *module, struct sockaddr_un *addr);

/* -------------------------------------------------------------------------- */
/* Queues                                                                     */
/* -------------------------------------------------------------------------- */

/* A queue belongs to a pair of name and instance through its key file
 * "/tmp/NAME_INSTANCE.msq". The path is cut at 63 characters. Most modules need
 * none of these functions.
 *
 * Returns: -1 for a negative queue id, without printing. After a failure errno
 *     is what the system call set. */

/* Creates the file, or truncates it.
 *
 * Returns: 0, or 1 if the file cannot be opened for writing.
 * Prints: "open PATH fail!" if it returns 1. */
ZAN_API int create_file(const char *path);

/* Opens the queue of (name, instance). Creates the key file and the queue if
 * they do not exist.
 *
 * Returns: the queue id, or -1.
 * Prints: "zan_msg_create ERROR:REASON" if it fails. */
ZAN_API int zan_msg_create(const char *name, int instance);

/* Creates the queue of (name, instance) with proj_id as the project id of its
 * key. Fails with EEXIST if the queue exists.
 *
 * Returns: the queue id, or -1.
 * Prints: "zan_msg_create_by_id ERROR:REASON" if it fails. */
ZAN_API int zan_msg_create_by_id(const char *name, int instance, int proj_id);

/* Removes the key file.
 *
 * Returns: the result of unlink(). */
ZAN_API int zan_del_msq_file(const char *name, int instance);

/* Removes the queue.
 *
 * Returns: 0, or -1.
 * Prints: "zan_msg_del ERROR:REASON" if it fails. */
ZAN_API int zan_msg_del(int qid);

/* Sends msgsz bytes of msg->body, which is ZAN_HEADER_SIZE plus the payload,
 * with the queue type msg->mtype.
 *
 * Returns: 0, or -1. A msgsz above ZAN_BODY_SIZE fails with EINVAL; bytes
 *     outside the record are never read.
 * Prints: "zan_msg_send qid=QID ERROR:REASON" if it fails. Every function that
 *     sends over a queue prints this line before its own.
 * Blocks: while the queue is full, without a time limit. A signal handler ends
 *     the wait with EINTR. */
ZAN_API int zan_msg_send(int qid, const zan_msg *msg, int msgsz);

/* Receives the next record of type msgtyp, as msgrcv() takes it, of at most max
 * bytes. A max above ZAN_BODY_SIZE counts as ZAN_BODY_SIZE. If a signal handler
 * interrupts the wait, it pauses for a millisecond and waits once more.
 *
 * Returns: the bytes received, without mtype, or -1.
 * Prints: "EINTR[QID]:retry..." when it is interrupted; "Retry
 *     fail[zan_msg_recv] qid=QID ERROR:REASON" if the second wait fails;
 *     "zan_msg_recv qid=QID ERROR:REASON" if the first wait fails for another
 *     reason.
 * Blocks: until a record arrives, without a time limit. */
ZAN_API int zan_msg_recv(int qid, int msgtyp, zan_msg *msg, int max);

/* Receives the next record of type msgtyp if one is waiting, with max as in
 * zan_msg_recv().
 *
 * Returns: the bytes received, without mtype; -1 with ENOMSG if no record is
 *     waiting; or -1.
 * Prints: "zan_msg_recv_no_wait msqid=QID ERROR:REASON" if it fails for a
 *     reason other than ENOMSG or EINTR. */
ZAN_API int zan_msg_recv_no_wait(int qid, int msgtyp, zan_msg *msg, int max);

/* -------------------------------------------------------------------------- */
/* Locks                                                                      */
/* -------------------------------------------------------------------------- */

/* A request holds the API lock from before the send until its answer has been
 * copied out, so a process has one request in flight at a time. SIGTERM is
 * blocked in a thread while it owns the API lock, so that it does not end a
 * module between a request and its answer. System actions, firewall requests,
 * command lines and remote management do not take the API lock.
 *
 * Sends of direct messages over the queue hold the queue lock, and so does the
 * receive thread of zan_thread_create(). The library never holds both locks at
 * once.
 *
 * zan_register() initialises the API lock, zan_thread_create() the queue lock;
 * zan_unregister() destroys both. A lock that is not initialised is not taken:
 * then lock and unlock do nothing. Init and destroy may be repeated, but not
 * while another thread uses the lock. Destroying a lock that a failure has left
 * held releases it first.
 *
 * Locks: neither lock is recursive. Releasing a lock that nobody holds does
 *     nothing, except that zan_api_unlock() unblocks SIGTERM. */

/* Prints: "[zan_api_lock_init:LINE] zan_api_lock_init fail" if the set of
 *     blocked signals cannot be made. */
ZAN_API void zan_api_lock_init(void);
ZAN_API void zan_api_lock_destroy(void);

/* Prints: "[zan_api_lock:194] sig unlock fail" if SIGTERM cannot be blocked;
 *     "cfg api lock failure [N]" or "cfg api unlock failure [N]" if the lock
 *     cannot be taken or released, with the error number N;
 *     "[zan_api_unlock:229] cfg api unlock failure" if SIGTERM cannot be
 *     unblocked.
 * Blocks: zan_api_lock() until the lock is free. */
ZAN_API void zan_api_lock(void);
ZAN_API void zan_api_unlock(void);

/* Blocks: zan_msq_lock() until the lock is free. */
ZAN_API void zan_msq_lock_init(void);
ZAN_API void zan_msq_lock_destroy(void);
ZAN_API void zan_msq_lock(void);
ZAN_API void zan_msq_unlock(void);

/* -------------------------------------------------------------------------- */
/* Answers                                                                    */
/* -------------------------------------------------------------------------- */

/* The requests of this header do this themselves. These functions are for
 * requests that a module builds itself. */

/* Waits on the module's own queue for the answer (type, cmd). Other records of
 * that type are consumed and lost.
 *
 * For the commands of ZAN_CLASS_CFG that answer with text, resp->ptr points to
 * the text, which a NUL ends, and resp->len is its length: copy it before the
 * next request of the process. For ZAN_CLASS_CWMP the payload is copied to
 * resp->data, with a NUL after it unless it fills the area. err and resp may be
 * null. An answer without payload reports the length and text of the record
 * received before it in the same call.
 *
 * Returns: 1; 0 for an answer of ZAN_CLASS_CWMP whose arg is 1; the answer's
 *     negative result, with its text in err (1024 bytes); or -1 if the receive
 *     fails.
 * Prints: the lines of zan_msg_recv() if the receive fails or is interrupted.
 * Locks: none. The caller holds the lock that its request was sent under.
 * Blocks: until the answer arrives, without a time limit. */
ZAN_API int zan_client_recv_msq_response(int type, int cmd, char *err, zan_resp *resp);

/* Waits on the daemon's registration queue for the answer to the registration
 * of qid.
 *
 * Returns: the answer's result, with its text in err (1024 bytes, may be null)
 *     if it is negative; or -1 if the receive fails.
 * Prints: the lines of zan_msg_recv() if the receive fails or is interrupted.
 * Blocks: until the answer arrives, without a time limit. */
ZAN_API int zan_client_recv_reg_msq(int qid, char *err);

/* -------------------------------------------------------------------------- */
/* Strings and numbers                                                        */
/* -------------------------------------------------------------------------- */

/* Trim in place the left end, the right end or both. A byte below 33, taken as
 * signed, is blank, so bytes from 128 up are trimmed too. A text of blanks
 * alone becomes empty.
 *
 * Returns: the text, which zan_triml() and zan_trim() may start further right;
 *     null for null. */
ZAN_API char *zan_triml(char *text);
ZAN_API char *zan_trimr(char *text);
ZAN_API char *zan_trim(char *text);

/* Copies at most size-1 characters and a NUL. A size below 5 means 1024.
 *
 * Returns: the characters copied; 0 if dst or src is null.
 * Prints: "### warning: zan_strcpy overflow, pid = PID, string = COPIED, size =
 *     COUNT" if the text is cut. */
ZAN_API int zan_strcpy(char *dst, const char *src, int size);

/* Formats at most size-1 characters and a NUL. A size below 5 means 1024.
 *
 * Returns: the characters stored; the formatter's result if that is 0 or
 *     negative; 0 without writing if size is negative. */
ZAN_API int zan_sprintf(char *dst, int size, const char *fmt, ...) ZAN_PRINTF(3, 4);

/* Convert the whole text in the given base (0: by prefix). The empty text is 0.
 * zan_strtoul() skips leading white space and rejects a minus sign. *end, if
 * end is not null, is where the conversion stopped.
 *
 * Returns: 0; or -1 with *value 0 if anything is left over or the number does
 *     not fit 32 bits. errno is ERANGE for a number that does not fit. */
ZAN_API int zan_strtol(const char *text, char **end, int base, int32_t *value);
ZAN_API int zan_strtoul(const char *text, char **end, int base, uint32_t *value);

/* -------------------------------------------------------------------------- */
/* Addresses                                                                  */
/* -------------------------------------------------------------------------- */

/* The validators never write into the text. A null text is invalid, except for
 * the list validators.
 *
 * Returns: 1 if the text is valid, else 0 (validators). */

/* Accepts four numbers of 0 to 255 with three dots between them, and no other
 * characters. The first missing number and those after it count as 0: "1.2.3."
 * is valid. Leading zeros are decimal. */
ZAN_API int zan_valid_ipv4_check(const char *text);

/* Accepts an address that a host can have: the first number is 1 to 223 and not
 * 127, the last 1 to 254. */
ZAN_API int zan_is_valid_ipv4(const char *text);

/* Accepts a netmask: ones, then zeros. 0.0.0.0 and 255.255.255.255 are masks.
 */
ZAN_API int zan_is_valid_ipv4_mask(const char *text);

/* Accepts "xx:xx:xx:xx:xx:xx" in hexadecimal digits. Each pair is read with
 * zan_strtoul(): its first character may be a plus sign or white space, and two
 * white-space characters are 0. */
ZAN_API int zan_is_valid_macaddr(const char *text);

/* Accept a comma-separated list of valid entries, and the null and the empty
 * list. Blanks, as zan_trim() defines them, are allowed around entries, but not
 * after the last. An empty entry is invalid. Of an entry that a comma follows,
 * 128 characters are read. */
ZAN_API int zan_is_valid_ipv4_list(const char *text);
ZAN_API int zan_is_valid_ipv4_mask_list(const char *text);
ZAN_API int zan_is_valid_mac_list(const char *text);

/* Convert a valid text into 6 bytes, or 6 bytes into 17 lower-case characters
 * and a NUL: text has room for 18.
 *
 * Returns: 0; or -1 without writing if an argument is null or the text is
 *     invalid. */
ZAN_API int zan_macstr_to_num(const char *text, unsigned char *mac);
ZAN_API int zan_macnum_to_str(const unsigned char *mac, char *text);

/* Finds the interface on which a bridge has learnt a MAC address of 6 bytes,
 * and stores its name in ifname, which has room for 16 bytes. Only the first
 * 128 entries of the bridge's forwarding database are searched.
 *
 * Returns: the number of entries read; or -1 if an argument is null, the bridge
 *     does not answer, the address is not found, or its port has no name. */
ZAN_API int get_ifname_from_macaddr(const char *bridge, const unsigned char *mac, char *ifname);

/* -------------------------------------------------------------------------- */
/* Interfaces and routes                                                      */
/* -------------------------------------------------------------------------- */

/* Each call asks the kernel anew, through a socket and the tables below
 * "/proc/net"; a line longer than the buffer for it is read in pieces, each as
 * a line. Texts for an IPv4 address have room for 16 bytes, for an IPv6 address
 * 46, for an interface name 16. A null pointer where none is allowed is a
 * failure. A socket that gets descriptor 0 is left open.
 *
 * Prints: "error socket" if no socket can be created; the warning of
 *     zan_strcpy() if a name is cut. */

/* Reads the IPv4 address of an interface.
 *
 * Returns: 1; or -1 with ip unchanged if the interface has no address. An
 *     address of another family is -1 with ip filled.
 * Prints: "not AF_INET family " for an address of another family. */
ZAN_API int get_ip_by_inf(const char *ifname, char *ip);

/* Reads the address of an interface. For AF_INET, addr (16 bytes), addrlen and
 * text may each be null. For AF_INET6, the first address of the interface whose
 * first byte is 0x20 goes into text, and into nothing else: link-local
 * addresses are skipped, and so are global ones such as 2a00::1.
 *
 * Returns: for AF_INET as get_ip_by_inf(); for AF_INET6 1, whether or not there
 *     is an address, 0 if the table cannot be opened, -1 without a socket; for
 *     another family 1 at once.
 * Prints: "not AF_INET family " for an address of another family. */
ZAN_API int get_addr_by_inf(int family, const char *ifname, struct sockaddr *addr, int *addrlen,
                            char *text);

/* Finds the first interface with the address ip, compared as text.
 *
 * Returns: 1, or 0 with ifname unchanged. */
ZAN_API int get_infname_by_ip(char *ifname, const char *ip);

/* Finds the first route of the table that leads to dest, which need not be the
 * most specific, and stores the address of its interface, or "", in ifaddr, and
 * its gateway in gateway, which may be null. dest is read by inet_addr():
 * "10.1" is 10.0.0.1, and, unlike in zan_is_valid_ipv4(), a number with a
 * leading 0 is octal. A dest that is not an address counts as 255.255.255.255.
 *
 * Returns: 1; or 0 with ifaddr empty, or unchanged if the table cannot be
 *     opened. */
ZAN_API int get_route_ip(const char *dest, char *ifaddr, char *gateway);

/* Finds the first route to exactly the network dest, whatever its prefix
 * length, and stores the IPv6 address of its interface, found with
 * get_addr_by_inf(), or "", in ifaddr.
 *
 * Returns: 0 always. */
ZAN_API int get_route6_ip(const char *dest, char *ifaddr);

/* Finds default routes: those that are up, by a gateway, and without the flags
 * H, R, D, M or "!". ifname, which may be null, is the beginning of the
 * interface's name, or "" to learn it from the first such route. gateway, which
 * may be null, is in network byte order. The whole table is read: with ifname,
 * gateway is in the end that of the last route that is up, or 0 if that is not
 * such a route on that interface; without ifname, that of the last such route.
 *
 * Returns: 0 always.
 * Prints: "Unsuported kernel route format" for a line with too few fields;
 *     missing fields count as 0. */
ZAN_API int get_default_gw(char *ifname, uint32_t *gateway);

/* Reads the counters of an interface, each into its output if that is not null.
 * A null or empty name stands for the interface of the default route. A name is
 * cut at 127 characters, and also matches the end of another name. The
 * multicast counters are the switch's, read for "eth0.1" to "eth0.4" from
 * "/proc/tc3162/gsw_mib1" to 4. A counter beyond 32 bits reads as the largest
 * number.
 *
 * Returns: 1 for "eth1", and for "eth0.1" to "eth0.4" if the switch's file can
 *     be read; 0 for other names, with the four other counters filled, and if
 *     there is no table or no default route. */
ZAN_API int get_inf_rx3tx(const char *ifname, uint32_t *rx_packets, uint32_t *rx_bytes,
                          uint32_t *tx_packets, uint32_t *tx_bytes, uint32_t *rx_multicast,
                          uint32_t *tx_multicast);

/* -------------------------------------------------------------------------- */
/* Paths                                                                      */
/* -------------------------------------------------------------------------- */

/* These functions work on NUL-terminated strings alone. An instance field is
 * the text after a ":" up to the next separator. Only its first 31 characters
 * count, and its letters always differ in upper and lower case.
 *
 * Returns: 0 for a match, 1 for none and for a null path (comparisons).
 */

/* Compares two paths. An instance field that begins with "#" equals any other,
 * on either side: "/sys/user:#/name" matches "/sys/user:12/name". nocase:
 * letters elsewhere are equal in either case.
 *
 * Hazard: at the end of a path "#" stands for one character: "/sys/user:#"
 *     matches "/sys/user:3" but not "/sys/user:12". Compare a path that goes on
 *     after the instance, or use pathobjectcmp(). */
ZAN_API int pathcmp(const char *a, const char *b, int nocase);

/* Compares the beginning of a path: whether a is the beginning of b (direction
 * 0), or b that of a (otherwise), by characters: "/A/B" is the beginning of
 * "/A/BC". "." and "/" are the same separator. Before the comparison, direction
 * 0 skips a leading "." or "/" of a, and then a leading "/" of b, or whatever b
 * begins with if a goes on with another "."; any other direction skips the
 * first character of b if b begins with "/" or a with ".", and a leading "." or
 * "/" of a. */
ZAN_API int pathpartcmp(const char *a, const char *b, int direction, int nocase);

/* Compares whether path is the object of the pattern or one element below it.
 * "#" in the pattern stands for one or more digits. Case matters. */
ZAN_API int pathobjectcmp(const char *pattern, const char *path);

/* Copies the elements from number start up to, but not including, number end;
 * ".", "/" and ":" separate them, and the separator after the last element is
 * copied too. A leading "/" does not count, nor does one more separator if
 * start is not negative. Numbers count from 0 at the left, or from -1 at the
 * right: then end 0 is the end of the path, where a separator does not count.
 * At most size-1 characters and a NUL are stored, and nothing if size is below
 * 1. path and out must not overlap.
 *
 *     "/A/B/C"  0, 1: "A/"   1, 9: "B/C"   -2, -1: "B/"   -1, 0: "C"
 *
 * Returns: out; an empty text elsewhere, which must not be written to, if the
 *     path has no such range; or null for a null argument, and for an empty
 *     path counted from the right. */
ZAN_API char *extract_tr098_path(const char *path, char *out, int size, int start, int end);

/* Collects the instance numbers of a path, the digits after "." or ":" from its
 * second character on, in list, which has room for 31 numbers: how many there
 * are, then the first 30 from left to right. An instance number of 0 is left
 * out; one that does not fit 32 bits is the largest that does.
 *
 * Returns: 1, or 0 for a null argument. */
ZAN_API int get_instances_by_path(const char *path, int32_t *list);

/* -------------------------------------------------------------------------- */
/* Lists                                                                      */
/* -------------------------------------------------------------------------- */

/* Unlinks and frees every node of a circular list except its head. Head and
 * nodes begin with two pointers, next and prev; the head of an empty list
 * points to itself; nodes come from malloc(). release, which may be null, is
 * called with each node before it is freed, and frees only what the node owns.
 *
 * Returns: 1. */
ZAN_API int free_all_dlist(void *head, int (*release)(void *node));

/* -------------------------------------------------------------------------- */
/* Fields                                                                     */
/* -------------------------------------------------------------------------- */

/* Fields are packed without padding, in the byte order of the machine: an
 * unsigned 16-bit length n, then n characters without a NUL; or, with n 4, a
 * 32-bit number. *pos is the next field and *room the bytes left; every call
 * advances both. A null pos or room counts as no room.
 *
 * A writer that finds too little room leaves both unchanged. A reader that
 * finds no field sets *room to 0 and leaves *pos, so that every later read
 * fails too: read all fields, then check *room once. */

/* Appends a text of up to 65535 characters; null counts as empty.
 *
 * Returns: the bytes used, n + 2, or 0 if the field does not fit.
 * Prints: "fill string = TEXT failed" if it does not fit.
 * Hazard: it ends the text with a NUL, which the next field overwrites. Give
 *     the buffer one byte more than the room that is declared. */
ZAN_API int fill_string(char **pos, int *room, const char *text);

/* Appends a number.
 *
 * Returns: the bytes used, 6, or 0 if the field does not fit.
 * Prints: "fill int = VALUE failed" if it does not fit. */
ZAN_API int fill_int(char **pos, int *room, int value);

/* Reads a text into a buffer of the library, cut at 1024 characters.
 *
 * Returns: the buffer, which the next call overwrites; an empty text if there
 *     is no field.
 * Prints: "### warning: get_string data len > 1024" if the text is cut; "get
 *     string failed data len = LENGTH, buf len = 0" if the field is longer than
 *     the room.
 * Locks: none. One thread at a time may call it.
 * Hazard: a field may end 2 bytes after the room, and then *room is negative.
 *     Give the buffer 2 readable bytes more than the room that is declared. */
ZAN_API char *get_string(char **pos, int *room);

/* Reads a text into dst, of size bytes. A longer text is cut; one of exactly
 * size characters loses the last without a warning.
 *
 * Returns: dst; or a buffer of the library, other than that of get_string(), if
 *     dst is null, if size is 0 or less, or, empty, if there is no field.
 * Prints: the lines of get_string(), with 1024 whatever the size.
 * Locks: none. Without dst, one thread at a time may call it.
 * Hazard: a field may end 2 bytes after the room, and then *room is negative.
 *     Give the buffer 2 readable bytes more than the room that is declared. */
ZAN_API char *get_string2(char **pos, int *room, char *dst, int size);

/* Reads a number.
 *
 * Returns: the number; 0 also if there is none.
 * Prints: "get int failed data len = LENGTH, buf len = ROOM" for a field of
 *     another length.
 * Hazard: the number may end 4 bytes after the room, and then *room is
 *     negative. Give the buffer 4 readable bytes more than the room that is
 *     declared. */
ZAN_API int get_int(char **pos, int *room);

/* -------------------------------------------------------------------------- */
/* Time and hashing                                                           */
/* -------------------------------------------------------------------------- */

/* Formats a time, in seconds since 1970, as UTC without a zone:
 * "2020-01-01T12:00:00". 0 stands for an unknown time, "0001-01-01T00:00:00Z".
 * A text that does not fit size leaves an empty one; with size 0 nothing is
 * written.
 *
 * Returns: buf.
 * Hazard: the text of the unknown time is written whatever the size. Give buf
 *     at least 21 bytes. */
ZAN_API char *time_string(char *buf, unsigned int size, int32_t t);

/* Reads a text of one of three forms. A text that contains a "-" anywhere is of
 * the first form, any other that contains a ":" of the second.
 *
 *     "2020-01-01T12:00:00"   "20200101T12:00:00"   "20200101T120000"
 *
 * Without a suffix the text is local time. With one it is UTC, less the offset
 * that "+" or "-" begins, at once or after a fraction of seconds. An offset
 * with a ":" as its fourth character is hours and minutes, "+01:00"; any other
 * is one number hhmm: "+0100", while "+01" is one minute. Write the offset of a
 * time without dashes with "+" only.
 *
 * Returns: 1, or 0 if an argument is null. *t is -1 if the text is not a time
 *     that fits 32 bits, and 0 for the unknown time. */
ZAN_API int string_time(const char *text, int32_t *t);

/* Computes the 32-bit FNV-1 hash of the lower-cased text, without the top bit,
 * modulo a modulus above 0. Bytes from 128 up are mixed in sign-extended. A
 * null text counts as empty.
 *
 * Returns: the hash. */
ZAN_API uint32_t fnv1_hash(const char *text, int modulus);

/* -------------------------------------------------------------------------- */
/* Processes and files                                                        */
/* -------------------------------------------------------------------------- */

/* Runs a command through the shell, with its error output discarded and its
 * text cut at 1023 characters.
 *
 * Returns: the wait status, or -1.
 * Blocks: until the command ends. */
ZAN_API int zan_system(const char *command);

/* Asks the system once for the limit on open descriptors.
 *
 * Returns: the limit, 1024 if there is none, or a negative number if it is not
 *     known.
 * Prints: "sysconf error for _SC_OPEN_MAX", without a newline, if it is not
 *     known. */
ZAN_API int open_max(void);

/* Opens a stream from ("r") or to ("w") a command that the shell runs. Later
 * commands do not inherit the streams of earlier ones. Close the stream with
 * vpclose() only.
 *
 * Returns: the stream; null on failure, with EINVAL for another mode.
 * Locks: none. One thread at a time may call vpopen(), vpclose() or
 *     zan_popen(). */
ZAN_API FILE *vpopen(const char *command, const char *mode);

/* Closes a stream of vpopen() and waits for its command.
 *
 * Returns: the wait status, or -1; -1 also for any other stream, which stays
 *     open.
 * Locks: none. One thread at a time may call vpopen(), vpclose() or
 *     zan_popen().
 * Blocks: until the command ends. */
ZAN_API int vpclose(FILE *stream);

/* Runs a command and stores its first line, without the newline and at most
 * size-1 characters, in buf. buf is unchanged if the command prints nothing.
 *
 * Returns: 0 always.
 * Prints: "### zan_popen Error: command=COMMAND", and "Error: REASON" on
 *     standard error, if the command cannot be started.
 * Locks: none. One thread at a time may call vpopen(), vpclose() or
 *     zan_popen().
 * Blocks: until the command ends. */
ZAN_API int zan_popen(const char *command, char *buf, int size);

/* Tests whether the file can be opened for reading.
 *
 * Returns: 1 if it can, else 0. */
ZAN_API int zan_file_exists(const char *path);

/* Opens a file with fopen().
 *
 * Returns: the stream, or null.
 * Prints: "### Warning:zan_fopen NULL" if it returns null. */
ZAN_API FILE *zan_fopen(const char *path, const char *mode);

/* Closes a stream with fclose().
 *
 * Returns: the result of fclose(); for a null stream the number of characters
 *     printed, with the newline.
 * Prints: "### Warning:zan_fclose NULL" for a null stream. */
ZAN_API int zan_fclose(FILE *stream);

/* Closes a descriptor above 0. It refuses 0, which means "no descriptor" to
 * modules, and negative ones.
 *
 * Returns: the result of close(); for a refused descriptor the number of
 *     characters printed, with the newline.
 * Prints: "### Warning:zan_close[FD]" for a refused descriptor. */
ZAN_API int zan_close(int fd);

/* -------------------------------------------------------------------------- */
/* Output                                                                     */
/* -------------------------------------------------------------------------- */

/* Prints to "/dev/console", which it opens for each call. It prints nothing if
 * that fails. */
ZAN_API void zan_dprintf(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* Writes n bytes to the stream.
 *
 * Returns: the bytes written; n if there is no stream or nothing to write. */
ZAN_API int redirect_output(const void *buf, int n, FILE *stream);

#ifdef __cplusplus
}
#endif

#endif /* ZAN_H */
