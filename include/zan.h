/* SPDX-License-Identifier: MIT */
/*
 * libzan: a process that links this library is a module of the router's zan
 * daemon.
 *
 * Every exchange with the daemon is one fixed-layout record, zan_msg, on a
 * System V message queue.  A module calls zan_register() once, then makes
 * requests; each request sends one record and waits for the answer with the
 * same class and command.
 *
 * Results: 0 or a positive number is success, a negative number a failure (the
 * ZAN_ERR codes below, or the daemon's own negative result passed through).
 * Failures that a developer must see are printed as one line on standard
 * output; each function says which.
 *
 * Threads: requests may be made from any thread once zan_register() has
 * returned.  They hold the process's API lock from before the send until the
 * answer has been copied out, so one request of a process is in flight at a
 * time, and SIGTERM is held off for exactly that long.  System actions, firewall and
 * control requests and remote management take no lock.  No function may be called
 * from a signal handler.
 *
 * Declarations not found in this header are not part of the interface.
 */
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

/* ------------------------------------------------------------------------ */
/* Constants                                                                */
/* ------------------------------------------------------------------------ */

/* Result codes of the library itself.  Any other negative result is the
 * daemon's. */
enum zan_error {
    ZAN_ERR = -1,              /* not registered, bad argument, or a failed receive */
    ZAN_ERR_TIMEOUT = -2,      /* no answer on the socket in time */
    ZAN_ERR_SEND = -2003,      /* the request could not be sent */
    ZAN_ERR_CREATE = -2005,    /* the socket could not be created */
    ZAN_ERR_REMOVE = -2006,    /* the queue or socket could not be removed */
    ZAN_ERR_MESH = -2010,      /* the mesh agent is not ready */
    ZAN_ERR_QUEUE_IDS = -2105, /* queue ids missing or clashing at registration */
    ZAN_ERR_REFUSED = -7007    /* file or action request refused locally */
};

/* Request classes: the `type` of a record. */
enum zan_class {
    ZAN_CLASS_CFG = 1,          /* configuration, to ZAN_MODULE_CFG */
    ZAN_CLASS_CWMP = 2,         /* remote management, to ZAN_MODULE_CWMP */
    ZAN_CLASS_REGISTRATION = 3, /* a module comes or goes */
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
    ZAN_CFG_RESERVED_30 = 30, /* answered by reference; no request sends it */
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
    ZAN_ACTION_EVENT_RESULT = 1, /* report of an event that was handled */
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
    ZAN_HEADER_SIZE = 100, /* the header after mtype: `msgsz` is this plus `len` */
    ZAN_DATA_SIZE = 35000, /* the payload area */
    ZAN_BODY_SIZE = 35100, /* header and payload area: the largest `msgsz` */
    ZAN_PATH_SIZE = 1024   /* a configuration path with its terminator */
};

/* The most characters that a record carries of a text; of a longer one the rest is
 * left out. */
enum zan_longest {
    ZAN_LONGEST_MESSAGE = 1024,      /* a direct message, in bytes */
    ZAN_LONGEST_COMMAND_LINE = 1024, /* for control, and for the firewall */
    ZAN_LONGEST_SHELL_COMMAND = 511,
    ZAN_LONGEST_FILE_NAME = 1023,    /* also the name in an action */
    ZAN_LONGEST_LOGIN = 1022,        /* the items, and a line end between each two */
    ZAN_LONGEST_ATTRIBUTES = 1022,   /* path, a blank and the attributes */
    ZAN_LONGEST_PRINT = 1023,        /* path, a blank and the text behind it */
    ZAN_LONGEST_CHANGED_VALUE = 1023 /* that a value-changed handler gets */
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

/* Destinations of a module's messages; any other value switches them off. */
enum zan_log_dest {
    ZAN_LOG_CONSOLE = 1,
    ZAN_LOG_TERMINALS = 2, /* /dev/pts/0 to 2 */
    ZAN_LOG_SYSLOG = 3,
    ZAN_LOG_ALL = 4,
    ZAN_LOG_FILE = 5
};

/* The log table in shared memory: ZAN_LOG_ENTRIES entries under the key
 * ftok(ZAN_LOG_KEY_PATH, ZAN_LOG_KEY_ID), and where the configuration tree has a
 * module's settings, as ZAN_LOG_TREE "/MODULE/loglevel" and "/MODULE/logdest". */
enum zan_log_table { ZAN_LOG_ENTRIES = 64, ZAN_LOG_KEY_ID = 109 };
#define ZAN_LOG_KEY_PATH "/tmp"
#define ZAN_LOG_TREE "/sys/log"

/* ------------------------------------------------------------------------ */
/* Types                                                                    */
/* ------------------------------------------------------------------------ */

/* The record without its queue type; the form that travels on sockets. */
typedef struct zan_body {
    int32_t type;             /* enum zan_class */
    int32_t cmd;              /* command within the class */
    char dst[ZAN_NAME_SIZE];  /* destination module */
    char src[ZAN_NAME_SIZE];  /* source module */
    int32_t pid;              /* sender's process id; instance at registration */
    int32_t time;             /* seconds since 1970, or 0 */
    int32_t spare;            /* always 0 */
    int32_t result;           /* of an answer; negative: data is an error text */
    int32_t aux;              /* the daemon's; 0 in requests */
    int32_t arg;              /* small argument of a request */
    int32_t len;              /* payload bytes that follow */
    char data[ZAN_DATA_SIZE]; /* payload */
} zan_body;

/* The record as msgsnd and msgrcv take it. */
typedef struct zan_msg {
    long mtype;
    zan_body body;
} zan_msg;

/* The answer area of a request. */
typedef struct zan_resp {
    char *ptr;                /* answer by reference, or untouched */
    char data[ZAN_DATA_SIZE]; /* answer by copy */
    int len;                  /* bytes of either */
} zan_resp;

/* What a request of ZAN_CLASS_ACTION carries; it always travels whole. */
typedef struct zan_action_data {
    int32_t code;                         /* enum zan_action, or the event that is reported */
    int32_t wait;                         /* 0: the sender does not wait for the answer */
    int32_t param;                        /* the daemon's */
    char name[ZAN_LONGEST_FILE_NAME + 1]; /* of a file, or a text; zeros behind it */
} zan_action_data;

/* A login to check: four items, and a fifth or null; result is the daemon's
 * number. */
typedef struct zan_login_req {
    const char *item1;
    const char *item2;
    const char *item3;
    const char *item4;
    const char *item5;
    int result;
} zan_login_req;

/* A module in the log table, which all processes of the device share. */
typedef struct zan_log_entry {
    char name[ZAN_NAME_SIZE]; /* of the module */
    int32_t level;            /* the highest level that is still logged */
    uint8_t dest;             /* enum zan_log_dest */
    uint8_t in_use;           /* 0: free, as are all behind it */
    uint8_t padding[2];       /* 0 */
    int32_t cpu;              /* the cpu flag of the registration */
} zan_log_entry;

/* A value has changed.  f1 to f3 and f6 are the notification's texts, f4 and
 * f5 its numbers, by position. */
typedef int (*zan_value_changed_fn)(char *f1, char *f2, char *f3, char *f6, int f4);
typedef int (*zan_value_changed2_fn)(char *f1, char *f2, char *f3, char *f6, int f4, int f5);
/* An event has happened; type is ZAN_CLASS_NOTIFY. */
typedef int (*zan_event_fn)(int event, int type);
/* A direct message of len bytes; body is the whole record.  len is kept within
 * the storage behind data; body->len is what the sender wrote. */
typedef int (*zan_message_fn)(char *data, int len, zan_body *body);
/* A task-manager message; type is ZAN_CLASS_ACTION. */
typedef int (*zan_taskmgr_fn)(char *data, int type);

/* ------------------------------------------------------------------------ */
/* Identity: read-only for modules, set by registration                      */
/* ------------------------------------------------------------------------ */

extern ZAN_API int g_zan_qid;     /* the daemon's request queue, -1 when unknown */
extern ZAN_API int g_reg_msq_qid; /* the daemon's registration-answer queue, or -1 */
extern ZAN_API int g_msq_qid;     /* this module's own queue, or -1 */
extern ZAN_API int g_msq_qid2;    /* this module's second queue, or -1 */
extern ZAN_API int g_ipc_handle;  /* this agent's daemon link, -1 when there is none */
extern ZAN_API char g_module_name[ZAN_NAME_SIZE];
extern ZAN_API char g_agent_name[ZAN_NAME_SIZE];

/* ------------------------------------------------------------------------ */
/* Queues: the primitives under every request                                */
/* ------------------------------------------------------------------------ */
/*
 * A queue belongs to a (name, instance) pair through its key file
 * "/tmp/NAME_INSTANCE.msq" (the path is cut at 63 characters).  A negative
 * queue id makes every primitive return -1 silently.  On failure errno stays as
 * the system call set it.  None of them takes a lock.
 */

/* Creates or truncates the file.  0, or 1 after printing "open PATH fail!". */
ZAN_API int create_file(const char *path);

/* Opens the queue of (name, instance), creating key file and queue as needed.
 * The queue id, or -1 after printing "zan_msg_create ERROR:REASON". */
ZAN_API int zan_msg_create(const char *name, int instance);

/* As zan_msg_create, with proj_id in the key, and fails when the queue exists. */
ZAN_API int zan_msg_create_by_id(const char *name, int instance, int proj_id);

/* Removes the key file: the result of unlink(). */
ZAN_API int zan_del_msq_file(const char *name, int instance);

/* Removes the queue.  0, or -1 after printing "zan_msg_del ERROR:REASON". */
ZAN_API int zan_msg_del(int qid);

/* Sends msgsz bytes of msg->body (ZAN_HEADER_SIZE plus the payload) under
 * msg->mtype; blocks while the queue is full.  0, or -1 after printing
 * "zan_msg_send qid=QID ERROR:REASON".  A msgsz above ZAN_BODY_SIZE fails with
 * EINVAL: nothing outside the record is ever read. */
ZAN_API int zan_msg_send(int qid, const zan_msg *msg, int msgsz);

/* Waits for a record of type msgtyp (as msgrcv takes it) of at most max bytes;
 * a max above ZAN_BODY_SIZE counts as ZAN_BODY_SIZE.  Returns the bytes
 * received, mtype not counted, or -1.  When a signal interrupts the wait it
 * prints "EINTR[QID]:retry...", pauses for a millisecond and waits once more;
 * a second failure prints "Retry fail[zan_msg_recv] qid=QID ERROR:REASON", any
 * other first failure "zan_msg_recv qid=QID ERROR:REASON". */
ZAN_API int zan_msg_recv(int qid, int msgtyp, zan_msg *msg, int max);

/* As zan_msg_recv, but returns -1 with ENOMSG at once when nothing waits.
 * EINTR and ENOMSG are silent; other failures print
 * "zan_msg_recv_no_wait msqid=QID ERROR:REASON". */
ZAN_API int zan_msg_recv_no_wait(int qid, int msgtyp, zan_msg *msg, int max);

/* ------------------------------------------------------------------------ */
/* Registration                                                              */
/* ------------------------------------------------------------------------ */
/*
 * Names are cut to 31 characters in g_module_name.  In the record itself a name
 * of 32 characters or more runs over into the fields behind it, those that are
 * set later excepted: keep names shorter.  A null name gives -1.
 */

/* The daemon's request queue id from "/tmp/zan_qid", or its registration-answer
 * queue id from "/tmp/zan_req_qid".  -1 after printing
 * "FUNCTION:The file FILE is not exist" when the file cannot be read. */
ZAN_API int zan_get_msq_qid(void);
ZAN_API int zan_get_reg_msq_qid(void);

/* Makes this process the module `name`: initialises the API lock, creates the
 * module's queue and announces it to the daemon.  Call it first and before any
 * other thread uses the library.  A failed attempt is repeated three times
 * under another queue key, each after printing
 * "zan_register_msq:register fail! Retry N[PROJ]...".  A retry that gets queue id 0
 * counts as failed, too, although the last one's 0 is returned.  The queue of a failed
 * attempt is removed, its key file stays.  Returns the queue id, or ZAN_ERR for a null name or a
 * failed wait, ZAN_ERR_QUEUE_IDS (no daemon, no queue to be had, or the ids clash, which prints
 * "!!!Error: ..."), ZAN_ERR_SEND, or the daemon's negative result. */
ZAN_API int zan_register(const char *name, int instance);

/* Registers a second queue (instance 1) under `name`; its id is also in
 * g_msq_qid2.  Results and messages as zan_register, the latter under the name
 * "zan_register_msqid".  When the first attempt fails, the retries replace
 * g_msq_qid instead of g_msq_qid2, and queues of failed attempts stay. */
ZAN_API int zan_register_msqid(const char *name);

/* Announces an existing queue under g_module_name; prints
 * "zan_register_by_qid:qid=QID".  Returns qid, ZAN_ERR_SEND, or, after
 * "zan_register_by_qid: register fail! ret = RESULT", ZAN_ERR for a failed wait or the
 * daemon's negative result. */
ZAN_API int zan_register_by_qid(int qid);

/* Ends the module: destroys both locks, then unregisters the second queue, if
 * there is one, and the main queue; removes the queues and their key files.
 * Call it last and from one thread.  0, or ZAN_ERR when not registered (after
 * "zan_unregister_msq: pid=PID"), ZAN_ERR_SEND, ZAN_ERR_REMOVE, ZAN_ERR for a failed
 * wait, or the daemon's result when that is not positive: then queue and key file
 * stay. */
ZAN_API int zan_unregister(const char *name, int instance);

/* Unregisters one queue under the API lock; results as zan_unregister.
 * Two hazards callers must know: with a negative queue id of the module or the
 * daemon it returns -1 and LEAVES THE API LOCK HELD, so that the next request
 * blocks; and when the queue cannot be removed (ZAN_ERR_REMOVE) it releases the
 * lock twice, which can release a lock that another thread has just taken. */
ZAN_API int zan_unregister_msqid(const char *name, int instance, int qid);

/* ------------------------------------------------------------------------ */
/* Locks                                                                     */
/* ------------------------------------------------------------------------ */
/*
 * The API lock is held by every request from send to answer; while a thread
 * owns it, SIGTERM is blocked in that thread.  The queue lock is held by direct
 * sends and by the locking receive thread.  Neither is recursive, the library
 * never nests them, and both are no-ops until initialised and after they are
 * destroyed.  zan_register() initialises the API lock, zan_thread_create() the
 * queue lock; zan_unregister() destroys both.  Init and destroy may be repeated
 * and must not run while another thread uses the lock; one that a failure has left
 * held is released before it is destroyed.
 *
 * A failure prints one line: "[zan_api_lock_init:LINE] zan_api_lock_init fail",
 * "[zan_api_lock:194] sig unlock fail", "cfg api lock failure [N]",
 * "cfg api unlock failure [N]" or "[zan_api_unlock:229] cfg api unlock failure".
 * Releasing a lock that nobody holds does nothing, save that SIGTERM is unblocked
 * with the API lock.
 */
ZAN_API void zan_api_lock_init(void);
ZAN_API void zan_api_lock_destroy(void);
ZAN_API void zan_api_lock(void);
ZAN_API void zan_api_unlock(void);
ZAN_API void zan_msq_lock_init(void);
ZAN_API void zan_msq_lock_destroy(void);
ZAN_API void zan_msq_lock(void);
ZAN_API void zan_msq_unlock(void);

/* ------------------------------------------------------------------------ */
/* Answers and incoming records                                              */
/* ------------------------------------------------------------------------ */

/* Waits on the own queue for the answer (type, cmd); other records of that type
 * are consumed and lost.  The caller holds the lock its request was sent under.
 * Returns 1; the answer's negative result, with its text in err (1024 bytes)
 * when err is given; or -1 when the receive failed.  For the commands of
 * ZAN_CLASS_CFG that answer with text, resp->ptr points to the text, ended by a
 * NUL, and resp->len counts it: copy it before the next request of the process.
 * For ZAN_CLASS_CWMP the payload is copied to resp->data, with a NUL behind it
 * unless it fills the area, and the result is 0 when the answer's arg is 1.
 * err and resp may be null.  An answer without payload reports the length and
 * text of the record received before it in the same call. */
ZAN_API int zan_client_recv_msq_response(int type, int cmd, char *err, zan_resp *resp);

/* Waits on the registration queue for the answer to qid: its result, or -1.  A
 * negative result's text is copied to err (1024 bytes) when err is given. */
ZAN_API int zan_client_recv_reg_msq(int qid, char *err);

/* Takes one waiting record of type msgtyp and at most max bytes into msg, which is a
 * whole zan_msg whatever max says: zeros may follow what was received.  Dispatches
 * it: the result of zan_process_data, 0 when nothing waits or after
 * printing "zan_client_recv_msq_no_wait: receive msq message error, msgid: QID.
 * Error:REASON" (one line), -1 when there is no own queue. */
ZAN_API int zan_client_recv_msq_no_wait(zan_msg *msg, int msgtyp, int max);

/* As zan_client_recv_msq_no_wait, but waits for the record; 0 when a signal
 * interrupts the wait. */
ZAN_API int zan_client_recv_msq2(zan_msg *msg, int msgtyp, int max);

/* Take and dispatch one waiting direct message, or one notification, on storage
 * of their own (35 KB of stack).  Results as zan_client_recv_msq_no_wait; without an
 * own queue they print "FUNCTION:receive msq message error, msgid: QID. Error:REASON"
 * (one line), unless errno says ENOMSG. */
ZAN_API int zan_recv_msq(void);
ZAN_API int zan_recv_notify_msq(void);

/* Handlers: null removes one.  They run on the thread that dispatches, their
 * results are ignored, and they must not wait for an answer on the path that
 * delivered the record.  The texts they are handed live until they return.
 * Install them before the receive thread starts. */
ZAN_API void zan_set_value_changed_handler(zan_value_changed_fn fn);
ZAN_API void zan_set_value_changed_handler2(zan_value_changed2_fn fn);
ZAN_API void zan_set_event_handler(zan_event_fn fn);
ZAN_API void zan_set_message_handler(zan_message_fn fn);
ZAN_API void zan_set_taskmgr_msg_handler(zan_taskmgr_fn fn);

/* Hands one record to the handler of its class: 1 when a handler was called,
 * else 0.  A class that no handler exists for prints
 * "receive unknown module message[TYPE]".  Both value-changed handlers are
 * called when both are set.  A message handler's len is kept within the storage
 * behind data, whatever the record says. */
ZAN_API int zan_process_data(zan_body *body);

/* Starts the detached receive thread on the own queue for records of type
 * mtype: 0, or the error number of the step that failed, after "Initial pthread
 * attribution error, errno: REASON.", "Setting pthread attribution error, errno:
 * REASON." or "API: Create trap handler thread failed.".  The first form initialises the queue lock
 * and holds it around each receive and dispatch, polling every 100 ms; the second waits in the
 * kernel and takes no lock, so it can take the acknowledgement that a direct send waits for.  The
 * thread prints "zan_thread_create: mtype=TYPE g_msq_qid=QID-------------------->"
 * (or "zan_thread_create_wo_lock: ...") once, ends at once without an own queue,
 * and ends after four hard receive errors in a row, each printed as "API: receive msq
 * message error, msgid: QID. Error:REASON count=N".
 *
 * A thread that receives ZAN_CLASS_NOTIFY also takes the answers to subscription
 * requests, which are of that class: subscribe before it starts, and unsubscribe
 * after it is cancelled. */
ZAN_API int zan_thread_create(int mtype);
ZAN_API int zan_thread_create_wo_lock(int mtype);

/* Cancels the thread started last: 0, or ESRCH when there is none.  The thread
 * ends where it waits or before its next record, never inside a handler or while it
 * holds the lock: it may still be ending when the call returns. */
ZAN_API int zan_thread_cancel(void);

/* ------------------------------------------------------------------------ */
/* Direct messages                                                           */
/* ------------------------------------------------------------------------ */
/*
 * Up to 1024 bytes to one module by name, or to all; longer messages are cut.
 * They reach the receiver's message handler.  A null module, a negative length,
 * or null data of a length above 0 gives -1.
 */

/* Over the queue, under the queue lock: the send's result (0), or 1 once the
 * daemon has acknowledged.  HAZARD: when the send fails, after printing
 * "zan_msq_send send failed", the queue lock STAYS HELD (where
 * zan_thread_create has initialised it): the receive thread and every later
 * queue send of the process block. */
ZAN_API int zan_send(const char *module, const void *data, int len);
ZAN_API int zan_send_with_ack(const char *module, const void *data, int len);
ZAN_API int zan_send_all(const char *module, const void *data, int len);

/* Over the daemon link of a registered agent, waiting for the acknowledgement;
 * no lock.  1, a negative result, or the failed send's result after printing
 * "zan_ipc_send send failed".  zan_send_all_agent then prints "zan_ipc_send send
 * failed! Try zan_send_all ..." instead, calls zan_send_all, whose result it returns,
 * and prints "zan_send_all ok!" or "zan_send_all fail!". */
ZAN_API int zan_send_agent(const char *module, const void *data, int len);
ZAN_API int zan_send_all_agent(const char *module, const void *data, int len);

/* ------------------------------------------------------------------------ */
/* Remote management                                                         */
/* ------------------------------------------------------------------------ */
/*
 * Requests to "ZAN_CWMP", sent and collected by separate calls, without a lock: one
 * thread of the process, with 38 KB of stack.
 */

/* Sends len bytes, or that many zeros when data is null: 1; -1 when len is
 * negative or above ZAN_DATA_SIZE; ZAN_ERR_SEND after
 * "zan_do_cwmp_request:zan_msg_send fail!". */
ZAN_API int zan_do_cwmp_request(int cmd, const void *data, int len);

/* Waits for the answer to cmd and copies it, as zan_client_recv_msq_response does,
 * to resp->data: 1, 0 when the answer's arg is 1, or a negative result, which
 * leaves resp as it was.  Answers to other commands are consumed and lost. */
ZAN_API int zan_cwmp_recv(int cmd, zan_resp *resp);

/* zan_recv_msq and zan_recv_notify_msq, under names of their own, also in the line
 * that they print. */
ZAN_API int zan_cwmp_recv_msq(void);
ZAN_API int zan_cwmp_recv_notify_msq(void);

/* ------------------------------------------------------------------------ */
/* Mesh agents                                                               */
/* ------------------------------------------------------------------------ */

/* 1 while the device is an enabled and settled mesh agent, else 0 after
 * "zan_mesh_status:mesh_enable=N role=ROLE", "zan_mesh_status:Topology is optimizing.."
 * or "zan_mesh_status:Mapd is initializing...".  Four configuration requests. */
ZAN_API int zan_mesh_status(void);

/* Registers this process as an agent over a daemon link of its own, opened in up
 * to four attempts 200 ms apart.  Returns the link's socket, which may be 0, also in
 * g_ipc_handle; or ZAN_ERR for a null name or a link that is lost during the wait,
 * ZAN_ERR_MESH after "FUNCTION: module=NAME pid=PID fail by mesh not ready",
 * ZAN_ERR_CREATE, ZAN_ERR_SEND, ZAN_ERR_TIMEOUT, or the daemon's negative result.  HAZARD: releases
 * the API lock without having taken it, and so also one that another thread holds. */
ZAN_API int zan_register_agent(const char *name, int pid);

/* Unregisters and closes the link, under the API lock; whether the daemon agrees
 * does not matter.  g_ipc_handle keeps its value.  0, ZAN_ERR for a null name,
 * ZAN_ERR_MESH, ZAN_ERR_SEND, or ZAN_ERR_REMOVE, which releases the API lock twice. */
ZAN_API int zan_unregister_agent(const char *name, int pid);

/* ------------------------------------------------------------------------ */
/* Records on the daemon link                                                */
/* ------------------------------------------------------------------------ */
/*
 * Answers and unsolicited records share one stream: what arrives while an answer
 * is awaited is set aside and delivered by the next zan_client_recv.  One thread
 * only.
 */

/* Reads what the link has into the record being received: 1 when it is complete,
 * 0 when not yet, -1 on an error, when the peer has closed, or when the record
 * would take 2 MiB or more.  Prints "zan_api_recv_data calloc memory failed" or
 * "zan_api_recv_data realloc memory failed" when memory runs out.
 *
 * HAZARDS: a header that comes in pieces counts as a complete record, 1, when no
 * length is known, and stays in network order otherwise.  After a record that was
 * refused the position stays: every later read of that link fails, or only fills the
 * buffer, until zan_register_agent opens a new one.  An EAGAIN or EINTR that an earlier
 * call has left in errno makes a hang-up read as 0, once. */
ZAN_API int zan_api_recv_data(int fd);

/* Waits on the link for the answer (type, cmd), up to 60 seconds for each piece
 * that arrives (50 for dump, print and convert).  Results and arguments as
 * zan_client_recv_msq_response, and ZAN_ERR_TIMEOUT, which is also what a signal
 * gives, at once, and what a missing link gives; only ZAN_CFG_GET answers by
 * reference, until the next record is received. */
ZAN_API int zan_client_recv_response(int type, int cmd, char *err, zan_resp *resp);

/* Delivers the records set aside and returns 0, or else receives from fd and
 * dispatches one record: -1 on an error, 0 when it is not complete, 1 when buf is
 * null or size below 1; otherwise the first bytes of the record, header first, as
 * many as its payload has but at most size, are copied to buf and counted. */
ZAN_API int zan_client_recv(int fd, char *buf, int size);

/* Asks the daemon for a record that wakes the module's select loop: the bytes
 * sent, or 0 after printing "zan_request_empty_message failed". */
ZAN_API int zan_request_empty_message(void);

/* ------------------------------------------------------------------------ */
/* Configuration                                                             */
/* ------------------------------------------------------------------------ */
/*
 * Requests to "ZAN_CFG".  A path is formatted from fmt and cut at 1023
 * characters; an instance number follows a colon, as in "/sys/user:1/name".
 * Results, unless said otherwise: 1; ZAN_ERR (-1) for a null argument or a failed
 * wait; ZAN_ERR_SEND after three lines, "FUNCTION:zan_msg_send fail!",
 * "FUNCTION: path=PATH" and "FUNCTION: pid=PID"; or the daemon's negative
 * result.  All hold the API lock from send to answer and use no heap and less than
 * 8 KB of stack, the C library's share included.
 */

/* Reads a value into `value` of `size` bytes; a size below 5 means 1024.  Longer
 * values are cut, with zan_strcpy's warning.  On failure value is untouched. */
ZAN_API int cfg_getstr(char *value, int size, const char *fmt, ...) ZAN_PRINTF(3, 4);

/* Writes a value.  Path and value are cut at 2044 characters together. */
ZAN_API int cfg_setstr(const char *value, const char *fmt, ...) ZAN_PRINTF(2, 3);

/* Reads a value as a decimal integer, limited to 32 bits.  0 also when the read
 * fails, after printing "cfg_getint failed for PATH".  In this function,
 * cfg_setint and cfg_getcount the formatted path is a format once more: "%%" in
 * it becomes "%". */
ZAN_API int cfg_getint(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* Writes a value as decimal text: the result of cfg_setstr. */
ZAN_API int cfg_setint(int value, const char *fmt, ...) ZAN_PRINTF(2, 3);

/* Counts the instances of a multi-instance object, whose path is cut at 255
 * characters.  0 also when the request fails. */
ZAN_API int cfg_getcount(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* Reads all instances of an object as one text, rendered by the daemon; as
 * cfg_getstr. */
ZAN_API int cfg_getarray(char *value, int size, const char *fmt, ...) ZAN_PRINTF(3, 4);

/* The process id of a registered module, or a negative code.  The second failure
 * line is "cfg_get_module_pid: module=MODULE". */
ZAN_API int cfg_get_module_pid(const char *module);

/* Creates an instance of a multi-instance object. */
ZAN_API int cfg_anchor(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* Deletes a node or an instance. */
ZAN_API int cfg_del(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* Have the daemon load a configuration file, use one, or dump its tree into one.
 * mode is the daemon's.  A name of more than 1023 characters is cut, with
 * zan_strcpy's warning.  The second failure line is "FUNCTION: loadfile=FILE", for
 * cfg_dump "cfg_dump: dumpfile=FILE". */
ZAN_API int cfg_reload(char *file);
ZAN_API int cfg_setfile(char *file);
ZAN_API int cfg_dump(int mode, char *file);

/* Has the daemon print a subtree; mode and extra, which may be null, are the
 * daemon's.  Path, a blank and extra are cut at 1023 characters together.  The
 * second failure line is "cfg_print: tmp_path=PATH". */
ZAN_API int cfg_print(int mode, const char *extra, const char *fmt, ...) ZAN_PRINTF(3, 4);

/* Reads a node's attributes: the address of their text, 0 when there is no answer
 * or the daemon refuses, or ZAN_ERR_SEND after three lines, the second being
 * "cfg_getattr: tmp_path=PATH".  HAZARD: the text is not copied.  It is good until
 * the next request of the process, from any thread.  intptr_t is int on the
 * target. */
ZAN_API intptr_t cfg_getattr(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* Writes a node's attributes.  Path, a blank and attr are cut at 1022 characters
 * together.  The second failure line is "cfg_setattr: tmp_path=PATH". */
ZAN_API int cfg_setattr(const char *attr, const char *fmt, ...) ZAN_PRINTF(2, 3);

/* ------------------------------------------------------------------------ */
/* Values over the daemon link, command lines                                */
/* ------------------------------------------------------------------------ */
/*
 * Unlike the requests above these take 38 KB of stack, and those that read use the
 * heap: for what the link brings, and for what it does not take.
 */

/* Read a value over the daemon link of an agent, under the API lock.  Path, value and
 * size as in cfg_getstr, the number as in cfg_getint.  zan_mesh_status is asked first,
 * in requests of its own.  1; ZAN_ERR for a null argument or a link that fails;
 * ZAN_ERR_MESH after "ctl_getstr: fail by mesh not ready"; the socket send's result
 * when that is 0 or negative, after the lines of zan_ipc_send; ZAN_ERR_TIMEOUT where
 * zan_client_recv_response gives it; or the daemon's negative result.  ctl_getint
 * gives the number, and 0 when the read fails, after printing "cfg_getint failed for
 * PATH". */
ZAN_API int ctl_getstr(char *value, int size, const char *fmt, ...) ZAN_PRINTF(3, 4);
ZAN_API int ctl_getint(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* Hands the daemon a command line, without a lock, the heap or an answer: 0, ZAN_ERR
 * for null, or ZAN_ERR_SEND after "zan_ctl_request:zan_msg_send fail! cmdline=CMDLINE".
 * A line of more than 1024 characters is cut, with zan_strcpy's warning; the report
 * shows it whole. */
ZAN_API int zan_ctl_request(const char *cmdline);

/* ------------------------------------------------------------------------ */
/* Logins, conversions, the device                                           */
/* ------------------------------------------------------------------------ */
/*
 * Requests as those for configuration; a failed send prints two lines,
 * "FUNCTION:zan_msg_send fail!" and "FUNCTION: pid=PID".
 */

/* Has the daemon check a login.  The items travel one per line and are cut at 1022
 * characters together; the record's length counts them whole, the rest reads as
 * zeros.  req->result is 0, and on success the daemon's number.  ZAN_ERR when one
 * of the first four items is null. */
ZAN_API int zan_loginauth(zan_login_req *req);

/* The user accounts under "/sys/user": cfg_getcount, and cfg_getstr of the name
 * and the password of account number index. */
ZAN_API int cfg_getcount_login_account(void);
ZAN_API int cfg_getstr_login_un(char *value, int size, int index);
ZAN_API int cfg_getstr_login_pw(char *value, int size, int index);

/* Has the daemon convert a text of up to 1023 characters; mode is the daemon's.  A
 * longer text is cut, with zan_strcpy's warning. */
ZAN_API int zan_convert(int mode, char *text);

/* Converts a path, cut at 1022 characters, in one of the daemon's ways: kind is 0
 * to 9, any other gives ZAN_ERR.  The answer is cut at size-1 characters without a
 * warning, and at 1023 with zan_strcpy's; value is untouched when size is below 1. */
ZAN_API int zan_convert_path(char *value, int size, int kind, const char *fmt, ...)
    ZAN_PRINTF(4, 5);

/* The name of the interface that a path stands for; as cfg_getstr. */
ZAN_API int zan_cfg_get_ifname(char *value, int size, const char *fmt, ...) ZAN_PRINTF(3, 4);

/* Facts of the device, read with cfg_getint (whose messages they print) from
 * "/runtime/hw/model", "/runtime/hw/type" and "/runtime/hw/customer_id" and kept
 * for the life of the process; 0 is asked for again every time.  Any thread may
 * ask.  cfg_hw_id_info_init forgets what is kept when it is called first; the
 * others call it. */
ZAN_API void cfg_hw_id_info_init(void);
ZAN_API int cfg_get_hw_model(void);
ZAN_API int cfg_get_hw_type(void);
ZAN_API int cfg_get_customer_id(void);

/* The class that the customer id belongs to: 3 and 4 to 2, 48 to 27, any other to
 * itself. */
ZAN_API int cfg_get_customize(void);

/* By "/sys/config_type", 1 (Ethernet), 2 (xPON) or 0; 0 also on another hardware
 * model than 29 or in another class than 14. */
ZAN_API int cfg_get_q47_wantype(void);

/* 1 when the interface, by name or by a path to convert, contains what the OMCI IP
 * host refers to, else 0.  A path is a format without arguments, in which only
 * "%%" stands for something. */
ZAN_API int cfg_is_iphost_conn(char *name);

/* ------------------------------------------------------------------------ */
/* Reset and apply                                                           */
/* ------------------------------------------------------------------------ */
/* Results and failure lines as above. */

/* Resets a subtree to its defaults. */
ZAN_API int cfg_reset(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* Applies the stored configuration to the running system.  While
 * "/runtime/app/tr069/config_state" is 1 it sends nothing and returns -1 after
 * "cfg_apply_all[MODULE]:TR069 doing configuration setting!"; that value is read
 * first, with cfg_getint, and can change right after. */
ZAN_API int cfg_apply_all(void);

/* The same for the firewall, whatever that value is. */
ZAN_API int cfg_apply_firewall_event(void);

/* ------------------------------------------------------------------------ */
/* System actions                                                            */
/* ------------------------------------------------------------------------ */
/*
 * Requests to "ZAN_FAD", in 1136 bytes always.  With a wait of 0 they return 1 once
 * sent, and the answer stays on the own queue until something polls it; otherwise
 * they wait and return 1, -1 when the wait fails, or the daemon's negative result.
 * A send that fails gives ZAN_ERR_SEND after "zan_fad_send:zan_msg_send fail!".  A
 * negative param travels as 0; a name of more than 1023 characters is cut, with
 * zan_strcpy's warning, and may be null where no upgrade depends on it.
 *
 * HAZARD: none of them takes a lock.  Two waiting actions, or a waiting action and
 * anything that receives ZAN_CLASS_ACTION or any type, can each read, and drop, the
 * answer that the other waits for, and the other then waits for good.  They take
 * 38 KB of stack.
 */

/* What the others call: cmd is the action code, and so, in all of them, is code,
 * which travels in the payload. */
ZAN_API int zan_fad_send(int cmd, int wait, int param, int code, const char *name);

/* A null filename gives ZAN_ERR_REFUSED after "fad: filename can not be empty". */
ZAN_API int zan_upgrade_firmware(int wait, int param, const char *filename);
ZAN_API int zan_upgrade_config(int wait, int param, const char *filename);

ZAN_API int zan_save_config(int wait, int param);
ZAN_API int zan_save_config2(int wait, int param);
ZAN_API int zan_factory_reset(int wait, int param, const char *name);
ZAN_API int zan_factory_reset_wo_wifi(int wait, int param, const char *name);
ZAN_API int zan_backup_config(int wait, int param, const char *name);
ZAN_API int zan_backup_old_config(int wait, int param, const char *name);

/* Runs a shell command, cut at 511 characters.  A null fmt gives ZAN_ERR_REFUSED
 * after "fad: unable to run null shell commad!". */
ZAN_API int zan_run_shell(int wait, int param, const char *fmt, ...) ZAN_PRINTF(3, 4);

/* Runs the shell command "appmgrcmd del sipapp" in the calling thread first. */
ZAN_API int zan_reboot(int wait);

/* Never waits. */
ZAN_API int zan_save_log(void);

/* Takes and dispatches one waiting record of any type: results as
 * zan_client_recv_msq_no_wait, and "zan_fad_recv_msq:receive msq message error,
 * msgid: QID. Error:REASON" (one line) without an own queue.  HAZARD: takes no lock
 * and takes records of any type, so also the answer that another thread's request
 * waits for. */
ZAN_API int zan_fad_recv_msq(void);

/* Reports the result of an event that was handled: 0, or ZAN_ERR_SEND after
 * "zan_report_event_result:zan_msg_send fail!". */
ZAN_API int zan_report_event_result(int event, int result);

/* ------------------------------------------------------------------------ */
/* Firewall                                                                  */
/* ------------------------------------------------------------------------ */
/*
 * A "firewall_cntl" command line for the daemon, cut at 1024 characters, without a
 * lock or an answer: 0, -1 for a null argument that is needed, or ZAN_ERR_SEND after
 * "FUNCTION: cmd_line=LINE" and "FUNCTION:zan_msg_send fail!".  Each argument fills
 * the option of its letter; p, a and k may be null and are then left out.  They take
 * 38 KB of stack.
 */
ZAN_API int zan_firewall_request(const char *f, const char *p);
ZAN_API int zan_firewall_request2(const char *f, const char *p, const char *a);
ZAN_API int zan_firewall_request4(const char *f, const char *k);

/* The formatted text behind -C. */
ZAN_API int zan_firewall_request3(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* "firewall_cntl -b -p P -i I -m M"; p and i are needed. */
ZAN_API int zan_firewall_l2b_notify(const char *p, const char *i, int m);

/* Waits for the next record of any type and dispatches it, as
 * zan_client_recv_msq2.  HAZARD: takes no lock and takes records of any type, so also
 * the answer that another thread's request waits for. */
ZAN_API int zan_firewall_recv_msq(void);

/* ------------------------------------------------------------------------ */
/* Subscriptions                                                             */
/* ------------------------------------------------------------------------ */
/*
 * Requests to "ZAN" that tell the daemon what to forward to the handlers.
 * Results as for configuration requests; a failed send prints two lines,
 * "FUNCTION:zan_msg_send fail!" and "FUNCTION: pid=PID".  They hold the API lock.
 */

/* Watches a value or subtree.  option (0 to 255) and the low byte of flag are
 * settings passed to the daemon; an option of 256 or more gives -1 and sends
 * nothing.  A path of more than 1023 characters, and 1024 to unregister, is cut,
 * with zan_strcpy's warning, but keeps its full length in the record, filled up with
 * zeros; one that exceeds the record with its length gives ZAN_ERR_SEND. */
ZAN_API int zan_notify_register_value_changed(const char *path, unsigned int option, int flag);
ZAN_API int zan_notify_unregister_value_changed(const char *path);

/* Subscribes to an event code. */
ZAN_API int zan_notify_register_event(int event);
ZAN_API int zan_notify_unregister_event(int event);

/* ------------------------------------------------------------------------ */
/* Logging                                                                   */
/* ------------------------------------------------------------------------ */
/*
 * The level and destination of every module are in one table of shared memory
 * that all processes attach and any may change at any time; entries are never
 * freed, and there are ZAN_LOG_ENTRIES.  No lock guards it: two processes that
 * register at the same moment may take the same entry.  The first registration on
 * the device creates the table and then clears it: an entry that another process
 * makes in between is lost.  A table whose segment has the id 0 is replaced, or, when
 * it cannot be removed, cleared, by the next process that registers for the first
 * time.  Within a process, register before other threads log.
 */

/* Enters the module into the table, or gives its entry new settings: level and
 * dest, unless the configuration tree has others (0 there is none, so the tree
 * cannot set level 0).  Names are cut to 31 characters in the table; a longer one
 * is then not found, and takes another entry each time.  The first registration on
 * the device creates the table and writes its key to "/tmp/ipc_used".  A cpu flag
 * of exactly 1 sends "cpu_test NAME PID" in 128 bytes to module "SEHD" with
 * zan_send, whose hazard applies.  Two configuration requests, which take the API
 * lock.  1, also when the table is full and nothing was done; 0 for a null name,
 * or when there is no table, after "shmget: REASON" or "shmat: REASON" on standard
 * error. */
ZAN_API int zan_log_init(const char *name, int level, int dest);
ZAN_API int zan_log_init_cpu(const char *name, int level, int dest, int cpu);
ZAN_API int __zan_log_init(const char *name, int level, int dest, int cpu);

/* The module's entry in the table, to read or to change, for as long as the process
 * runs; null when there is none or this process has registered none.  The empty
 * name finds the first free entry. */
ZAN_API zan_log_entry *zan_get_log_level(const char *name);

/* Writes a message of module `name`, or, when that is null, of the module that this
 * process registered last: 1, also when its level or destination filters it out;
 * 0 when nothing was written because fmt is null, no module is registered in this
 * process, this one is not in the table, or "/dev/console" cannot be opened, which is
 * kept open from the first call on.  A terminal or file that cannot be opened is left
 * out.
 *
 * Messages are cut at 4095 characters, for syslog at 2047.  To syslog each goes
 * twice, with priority 192: before the message, an empty one, or under ZAN_LOG_ALL
 * the message with each "%%" in it shown as "%" and any other "%" as it is, "%m"
 * too.  To a file, "/var/log/NAME" is
 * appended to, with the name as it is passed and "(null)" for a null one.  HAZARDS: a
 * name with "/" in it leaves that directory, and control characters of a message
 * reach terminals and files: neither may come from outside.  A terminal that nobody
 * reads blocks.  Takes no lock; threads may log at the same time. */
ZAN_API int zan_log(const char *name, int level, const char *fmt, ...) ZAN_PRINTF(3, 4);

/* The local time as "hh:mm:ss", in one buffer of the process that every call, and
 * every message written elsewhere than to syslog alone, overwrites. */
ZAN_API char *zan_log_get_current_time_str(void);

/* ------------------------------------------------------------------------ */
/* Event messages                                                            */
/* ------------------------------------------------------------------------ */
/*
 * Modules tell each other of events in flat JSON objects of strings.  The text
 * does not say which event it is: sender and receiver have agreed on that.
 */

/* A row for each event: its kind, what the names of its two functions end in, and
 * the keys of its members in order.  EVENT is a macro (kind, name, keys...). */
#define ZAN_EVENTS(EVENT)                                                                          \
    EVENT(easymesh, easymesh_event_msg, "Type", "Action", "ALMACAddress", "Value")                 \
    EVENT(palumesh, palumesh_event_msg, "Type", "Action", "Value")                                 \
    EVENT(wan, wan_event_msg, "IP", "Mask", "Gateway", "DNS", "Interface")                         \
    EVENT(wifi_sniffer, wifi_sniffer_event_msg, "Action")                                          \
    EVENT(ser2net, ser2net_event_msg, "Action", "CFGPath")                                         \
    EVENT(firewall, firewall_event_msg, "Function", "Action", "CFGPath", "Value")                  \
    EVENT(neighbor, kelso_neighbor_info, "SerialNumber", "Ssid", "Bssid24G", "Bssid5G",            \
          "Channel24G", "Channel5G")

/* The encoders print the object without blanks, members in the order of the
 * arguments, cut at size-1 characters and ended by a NUL; size 0 writes nothing.
 * A null argument leaves its member out.  Always 0; when memory runs out the text
 * is empty.
 *
 * The decoders copy each member that the text has into its buffer, cut at size-1
 * characters and ended by a NUL, an empty text for a member that is no string.
 * The buffer of a member that is missing stays as it was, so clear it before; a
 * null buffer and one of size 0 are passed over.  Keys are found in any case and
 * order, the first of two; other members, and anything behind the object, do not
 * matter.  0, or -1 after "FUNCTION:cJSON format error..." when the text is null or
 * does not parse, or memory runs out.
 *
 * All use the heap, take no lock and may be called from any thread. */
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

/* ------------------------------------------------------------------------ */
/* Sockets                                                                   */
/* ------------------------------------------------------------------------ */
/*
 * The daemon link is a stream between a module and the daemon, the module links
 * are datagrams between modules: the daemon link over TCP, listening on all
 * addresses, the module links over UDP on the loopback address; both also over local
 * sockets under /tmp.  The daemon's TCP end gives up a send after 300 ms, local
 * sockets after 200 ms; a module's TCP end never waits: a part goes, or it is -1 with
 * EAGAIN.  UDP sends have no time-out.  The create functions return a socket or -1, the sends
 * and receives what the system call returned, unless said otherwise.  Nothing here is
 * protected against other threads but by the busy flag of the zan_ipc_ and ipc_
 * functions.
 *
 * A stream socket that takes only part of a message keeps the rest, on the heap, and
 * prints "ipc socket: buffer maybe full"; without memory the rest is lost, after
 * "set_snd_failed_buffer - new_failed_msg calloc memory failed" or
 * "set_snd_failed_buffer - new_failed_msg->buffer calloc memory failed".  The next
 * send on it prints "get failed packet buffer, start sending..." and sends that rest
 * first.  When all of that went, it prints "send failed buffer ret = COUNT" and sends
 * its own message; it returns 0 without sending that when only a part went, and -3
 * after "resend failed packet ret = RESULT, REASON" when nothing did.
 *
 * A create that cannot set the time-out of its sends prints "socket ipc: set socket
 * send timout failed" and returns -1, but leaves the socket open.
 */

/* The daemon link over TCP.  A name of "ZAN", in any case, makes the daemon's
 * listening socket at the first free port from 2679 to 65535 and writes that to
 * "/tmp/zan.socket"; any other connects a module, non-blocking, to the port in
 * that file and the address in "/tmp/zan.socketip" (192.168.0.1 without one),
 * trying five times 100 ms apart.  The daemon's end listens on all addresses: who may
 * reach it is the firewall's to say.  -1, and the socket is closed, in silence when no
 * port is free, or after "zan: write socket port file failed", "zan: can not get zan
 * port", or "zan: can not connect to zan, port=PORT". */
ZAN_API int zan_socket_create(const char *name);
/* A send that fails prints "ipc socket send failed, REASON". */
ZAN_API int zan_socket_send(int fd, const void *data, int len);
ZAN_API int zan_socket_send_to(int fd, const void *data, int len, const struct sockaddr_in *to);
/* On a module's end -1 at once, with EAGAIN, when nothing is queued. */
ZAN_API int zan_socket_recv(int fd, void *buf, int len);
/* Leaves the data queued. */
ZAN_API int zan_socket_try_recv(int fd, void *buf, int len);
/* Waits 3 seconds at most; prints "recvfrom err:ERRNO" when it fails.  HAZARD: when
 * that time-out cannot be set, as on a descriptor that is no socket, nothing is received
 * and the result is 39, the length of the line that it prints, "socket option
 * SO_RCVTIMEO not support" with two blanks after "option". */
ZAN_API int zan_socket_recv_from(int fd, void *buf, int len, struct sockaddr_in *from);
/* Closes the socket and drops what is kept for it, after "delete failed msg queue" when
 * that is anything.  1. */
ZAN_API int zan_socket_delete(int fd);

/* The files of the daemon link: 1, or 0 after "zan: write socket port file failed";
 * the port, 2679 without a file; the address's line, at most 31 characters, with
 * zan_strcpy's warning when it is longer, into 32 bytes left untouched without a file. */
ZAN_API int zan_socket_write_port_file(int port);
ZAN_API int zan_get_socket_port(void);
ZAN_API void zan_get_socket_ip(char *out);

/* The module links over UDP.  A server takes the first free port from 12000 to
 * 65535 and writes it to "/tmp/MODULE.info"; when that fails it prints "zan: write
 * socket port file failed" and closes the socket, and when no port is free it closes it
 * in silence.  The address of a module without that file has port 0; the result is the
 * port in network order. */
ZAN_API int ipc_socket_create_server(const char *module);
ZAN_API int ipc_socket_create_client(void);
ZAN_API int ipc_socket_recv_from(int fd, void *buf, int len, struct sockaddr_in *from);
ZAN_API int ipc_socket_write_port_file(const char *module, int port);
ZAN_API int ipc_get_socket_port(const char *module);
ZAN_API int ipc_socket_get_addr(const char *module, struct sockaddr_in *addr);

/* The daemon link over local sockets: "/tmp/NAME_INSTANCE.ls" for the daemon;
 * modules connect to "/tmp/ZAN_0.ls", and print "Connect to zan local socket fail!!",
 * without a newline, and close the socket when that fails.  The daemon's end takes its
 * file over and fails as the module links below.  zan_lsocket_send drops the rest of a
 * message that goes in part, in silence, zan_lsocket_send_to keeps it; one that fails
 * prints "ipc lsocket send failed, REASON". */
ZAN_API int zan_lsocket_create(const char *name, int instance);
ZAN_API int zan_lsocket_send(int fd, const void *data, int len);
ZAN_API int zan_lsocket_send_to(int fd, const void *data, int len, const struct sockaddr_un *to);
ZAN_API int zan_lsocket_recv(int fd, void *buf, int len);
ZAN_API int zan_lsocket_try_recv(int fd, void *buf, int len);
ZAN_API int zan_lsocket_recv_from(int fd, void *buf, int len, struct sockaddr_un *from);
/* Closes the socket and drops what is kept for it, as zan_socket_delete, and removes its
 * file when it is the module link that this process made last: earlier links leave
 * theirs.  1. */
ZAN_API int zan_lsocket_delete(int fd);

/* The module links over local sockets: "/tmp/MODULE_0.ls" for a server,
 * "/tmp/MODULE_PID.ls" for a client; a path of more than 107 characters is cut, with
 * zan_strcpy's warning.  A file that nobody listens behind is removed and taken over;
 * otherwise "ZAN: Second instance already running" is printed when its owner lives,
 * "ZAN: removing old socket" when it cannot be removed, or "ZAN: bind error" when the
 * socket cannot be bound even then.  On failure the socket stays open, and counts as
 * the link made last. */
ZAN_API int ipc_lsocket_create_server(const char *module);
ZAN_API int ipc_lsocket_create_client(const char *module);
ZAN_API int ipc_lsocket_recv_from(int fd, void *buf, int len, struct sockaddr_un *from);
ZAN_API int ipc_lsocket_get_addr(const char *module, struct sockaddr_un *addr);

/* What modules use: the functions above over IPv4, behind a busy flag.  A call
 * that finds the flag set waits up to six times 200 ms and then returns -1;
 * zan_ipc_send prints "zan_ipc_send: retry fail!" first.  A blocked receive keeps
 * the flag set.  What the functions behind it print, and the hazard of
 * zan_socket_recv_from, is theirs too.  zan_ipc_enable_lock(0) makes every call go
 * through at once.  The creates and ipc_get_module_addr take no part in it. */
ZAN_API void zan_ipc_enable_lock(unsigned char flag);
ZAN_API int zan_ipc_create(const char *name, int unused);
ZAN_API int zan_ipc_send(int fd, const void *data, int len);
ZAN_API int zan_ipc_send_to(int fd, const void *data, int len, const struct sockaddr_in *to);
ZAN_API int zan_ipc_recv(int fd, void *buf, int len);
ZAN_API int zan_ipc_try_recv(int fd, void *buf, int len);
ZAN_API int zan_ipc_recv_from(int fd, void *buf, int len, struct sockaddr_in *from);
ZAN_API int zan_ipc_delete(int fd);
ZAN_API int ipc_create_server(const char *module);
ZAN_API int ipc_create_client(void);
ZAN_API int ipc_send_to(int fd, const void *data, int len, const struct sockaddr_in *to);
ZAN_API int ipc_recv(int fd, void *buf, int len);
ZAN_API int ipc_recv_from(int fd, void *buf, int len, struct sockaddr_in *from);
ZAN_API int ipc_get_module_addr(const char *module, struct sockaddr_in *addr);

/* ------------------------------------------------------------------------ */
/* Strings and numbers                                                       */
/* ------------------------------------------------------------------------ */

/* Trim in place: a byte below 33, taken as signed, is blank, so bytes from 128
 * up are trimmed too.  zan_triml returns a pointer into the text; a null text
 * gives null.  A text of blanks alone becomes empty. */
ZAN_API char *zan_triml(char *text);
ZAN_API char *zan_trimr(char *text);
ZAN_API char *zan_trim(char *text);

/* Copies at most size-1 characters and a NUL; a size below 5 means 1024.  Returns
 * the characters copied, 0 when dst or src is null.  A text that is cut prints
 * "### warning: zan_strcpy overflow, pid = PID, string = COPIED, size = COUNT". */
ZAN_API int zan_strcpy(char *dst, const char *src, int size);

/* Formats at most size-1 characters and a NUL; a size below 5 means 1024.
 * Returns the characters stored, the formatter's result when that is 0 or
 * negative, or 0 without writing when size is negative. */
ZAN_API int zan_sprintf(char *dst, int size, const char *fmt, ...) ZAN_PRINTF(3, 4);

/* Convert the whole text in the given base (0: by prefix): 0, or -1 with *value 0
 * when anything is left over or the number does not fit 32 bits.  The empty text
 * is 0.  zan_strtoul skips leading white space and refuses a "-".  *end, when
 * given, is where the conversion stopped. */
ZAN_API int zan_strtol(const char *text, char **end, int base, int32_t *value);
ZAN_API int zan_strtoul(const char *text, char **end, int base, uint32_t *value);

/* ------------------------------------------------------------------------ */
/* Addresses                                                                 */
/* ------------------------------------------------------------------------ */
/*
 * The validators answer 1 or 0, print nothing and never write into the text.  A
 * null text is invalid, but to the list validators.
 */

/* Four numbers of 0 to 255 with three dots between them.  Nothing but digits and
 * dots passes; the first number that is missing, and those behind it, count as 0:
 * "1.2.3." is valid.  Leading zeros are decimal. */
ZAN_API int zan_valid_ipv4_check(const char *text);

/* Such an address that a host can have: the first number is 1 to 223 and not 127,
 * the last 1 to 254. */
ZAN_API int zan_is_valid_ipv4(const char *text);

/* A netmask: ones, then zeros.  0.0.0.0 and 255.255.255.255 are masks. */
ZAN_API int zan_is_valid_ipv4_mask(const char *text);

/* "xx:xx:xx:xx:xx:xx" in hexadecimal digits.  Each pair is read as zan_strtoul
 * does: its first character may be a plus sign or white space, and two of white
 * space are 0. */
ZAN_API int zan_is_valid_macaddr(const char *text);

/* Whether every entry of a comma-separated list is valid; so are the null and the
 * empty list.  Blanks, as zan_trim has them, may stand around entries, but not
 * behind the last.  Of an entry with a comma behind it 128 characters are looked
 * at.  An empty entry is invalid. */
ZAN_API int zan_is_valid_ipv4_list(const char *text);
ZAN_API int zan_is_valid_ipv4_mask_list(const char *text);
ZAN_API int zan_is_valid_mac_list(const char *text);

/* Converts a valid text into 6 bytes, or 6 bytes into 17 lower-case characters and
 * a NUL: text has room for 18.  0, or -1 when an argument is null or the text is
 * invalid; then nothing is written. */
ZAN_API int zan_macstr_to_num(const char *text, unsigned char *mac);
ZAN_API int zan_macnum_to_str(const unsigned char *mac, char *text);

/* The interface behind which a bridge has learnt a MAC address of 6 bytes: its name
 * goes into ifname, which has room for 16 bytes.  Returns how many entries of the
 * bridge's forwarding database were read, or -1; only its first 128 are searched.
 * Asks the kernel; prints nothing. */
ZAN_API int get_ifname_from_macaddr(const char *bridge, const unsigned char *mac, char *ifname);

/* ------------------------------------------------------------------------ */
/* Interfaces and routes                                                     */
/* ------------------------------------------------------------------------ */
/*
 * Questions to the kernel, asked afresh at each call through a socket and the tables
 * below "/proc/net"; a line longer than the buffer for it is read in pieces, each as a
 * line.  Texts for an IPv4 address have room for 16 bytes, for an IPv6 address 46, for
 * an interface name 16: longer names are cut with zan_strcpy's warning.  A null pointer
 * where one is not allowed is a failure.  When no socket is to be had, "error socket"
 * is printed; a socket that gets descriptor 0 is left open.
 */

/* The IPv4 address of an interface: 1, or -1 with ip as it was.  An address of another
 * family prints "not AF_INET family " and is -1 with ip filled. */
ZAN_API int get_ip_by_inf(const char *ifname, char *ip);

/* The same for family AF_INET; addr (16 bytes), addrlen and text may each be null.  For
 * AF_INET6 the first address of the interface that begins with 0x20 goes into text,
 * and into nothing else: 1, with or without one, 0 when the table cannot be opened, -1
 * without a socket.  For another family 1 at once. */
ZAN_API int get_addr_by_inf(int family, const char *ifname, struct sockaddr *addr, int *addrlen,
                            char *text);

/* The first interface with the address: 1, or 0 with ifname as it was. */
ZAN_API int get_infname_by_ip(char *ifname, const char *ip);

/* The first route of the table that leads to dest, which need not be the most specific:
 * the address of its interface, or "", and its gateway, which may be null.  1, or 0
 * with ifaddr "", or as it was when the table cannot be opened.  dest is read as
 * inet_addr() does: "10.1" is 10.0.0.1, and, other than in zan_is_valid_ipv4(), a number
 * with a leading 0 is octal.  One that is no address counts as 255.255.255.255. */
ZAN_API int get_route_ip(const char *dest, char *ifaddr, char *gateway);

/* The IPv6 address, as get_addr_by_inf has it, of the interface behind the first route
 * to exactly the network dest, whatever the length of its prefix; "" when there is
 * none.  Always 0. */
ZAN_API int get_route6_ip(const char *dest, char *ifaddr);

/* Looks for default routes: those that are up, by a gateway, and without the flags H, R,
 * D, M or "!".  ifname, which may be null, is the beginning of the interface's name, or
 * "" to learn it from the first such route.  gateway, which may be null, is in network
 * byte order.  The whole table is read: with ifname, gateway is in the end that of the
 * last route that is up, 0 unless it is such a route on that interface; without, that
 * of the last such route.  A line with too few fields prints "Unsuported kernel route
 * format"; those that are missing count as 0.  Always 0. */
ZAN_API int get_default_gw(char *ifname, uint32_t *gateway);

/* Counters of an interface, each output alone when it is not null.  A null or empty
 * name stands for that of the default route; a name is cut at 127 characters, and found
 * at the end of another one, too.  The multicast counters are the switch's, read for
 * "eth0.1" to "eth0.4" from "/proc/tc3162/gsw_mib1" to 4: 1, or 0 without that file.
 * 1 for "eth1".  0 for other names, with the four counters filled, and when there is no
 * table or no default route.  Counters beyond 32 bits read as the largest number. */
ZAN_API int get_inf_rx3tx(const char *ifname, uint32_t *rx_packets, uint32_t *rx_bytes,
                          uint32_t *tx_packets, uint32_t *tx_bytes, uint32_t *rx_multicast,
                          uint32_t *tx_multicast);

/* ------------------------------------------------------------------------ */
/* Paths                                                                     */
/* ------------------------------------------------------------------------ */
/*
 * Pure string work on NUL-terminated paths; nothing is printed.  In an instance
 * field, the text behind a ":", only the first 31 characters count, and upper and
 * lower case always differ.  The comparisons answer 0 for a match and 1 for none,
 * which is also the answer for a null path.
 */

/* Whether two paths are equal, in either order.  An instance field that begins with
 * "#" equals any other: "/sys/user:#/name" is "/sys/user:12/name".  At the end of a
 * path, however, "#" stands for one character: "/sys/user:#" is "/sys/user:3" and not
 * "/sys/user:12".  nocase: letters elsewhere are equal in either case. */
ZAN_API int pathcmp(const char *a, const char *b, int nocase);

/* Whether a is the beginning of b (direction 0), or b that of a (otherwise), by
 * characters: "/A/B" is the beginning of "/A/BC".  "." and "/" are the same.  Before
 * the walk, direction 0 passes over a leading "." or "/" of a, and then over a leading
 * "/" of b, or over whatever b begins with when a goes on with another "."; any other
 * direction passes over the first character of b when b begins with "/" or a with ".",
 * and over a leading "." or "/" of a. */
ZAN_API int pathpartcmp(const char *a, const char *b, int direction, int nocase);

/* Whether path is the object of the pattern or one element below it.  "#" in the
 * pattern stands for one or more digits.  Case matters. */
ZAN_API int pathobjectcmp(const char *pattern, const char *path);

/* Copies the elements from number start up to but not including number end; ".", "/"
 * and ":" separate them, and the one behind the last element is copied too; a leading
 * "/" does not count, nor one more separator when start is not negative.  Counted
 * from 0 at the left, or from -1 at the right: then end 0 is the end of the path, and a
 * separator there does not count.  At most size-1 characters go to out, without a
 * warning; with a size below 1 nothing does.  path and out must not overlap.
 *     "/A/B/C"  0, 1: "A/"   1, 9: "B/C"   -2, -1: "B/"   -1, 0: "C"
 * Returns out; an empty text elsewhere, to be left alone, when the path has no such
 * range; or null for a null argument, and for an empty path counted from the right. */
ZAN_API char *extract_tr098_path(const char *path, char *out, int size, int start, int end);

/* Collects the instance numbers of a path, the digits behind "." or ":" from its
 * second character on, into list, which has room for 31 numbers: how many there are,
 * then the first 30 from left to right.  An instance number of 0 is left out, one that
 * does not fit 32 bits is the largest that does.  1, or 0 for a null argument. */
ZAN_API int get_instances_by_path(const char *path, int32_t *list);

/* ------------------------------------------------------------------------ */
/* Lists                                                                     */
/* ------------------------------------------------------------------------ */

/* Unlinks and frees every node of a circular list but its head.  Head and nodes begin
 * with two pointers, next and prev; an empty list's head points to itself; nodes come
 * from malloc().  release, which may be null, is called with each node before it is
 * freed, and frees only what the node owns.  Returns 1. */
ZAN_API int free_all_dlist(void *head, int (*release)(void *node));

/* ------------------------------------------------------------------------ */
/* Fields                                                                    */
/* ------------------------------------------------------------------------ */
/*
 * A run of fields in a buffer of the caller's, without padding, in the byte order of
 * the machine: an unsigned 16-bit length n, then n characters of text without NUL,
 * or then, with n 4, a 32-bit number.  *pos is the next field and *room the bytes
 * left; every call moves both along.  A null pos or room counts as no room.
 *
 * Writers that find too little room return 0 and leave both as they are.  Readers
 * then set *room to 0 and leave *pos, so that every later read fails too: read all
 * fields, then look at *room once.  What is read must have readable bytes behind its
 * room, 2 for get_string and get_string2 and 4 for get_int: a last field may reach
 * so far, and leaves *room negative.
 */

/* Appends a text of up to 65535 characters; null counts as empty.  The buffer needs
 * one byte behind the room, for a NUL that the next field overwrites.  The bytes
 * used, or 0 after "fill string = TEXT failed". */
ZAN_API int fill_string(char **pos, int *room, const char *text);

/* Appends a number: 6, or 0 after "fill int = VALUE failed". */
ZAN_API int fill_int(char **pos, int *room, int value);

/* Reads a text: a buffer of the library's, the same at every call, with the first
 * 1024 characters; more print "### warning: get_string data len > 1024".  Empty when
 * there is no field; one that is longer than the room prints
 * "get string failed data len = LENGTH, buf len = 0".  For one thread at a time. */
ZAN_API char *get_string(char **pos, int *room);

/* The same into dst, of size bytes, which is returned; a longer text is cut and
 * prints the warning above, with 1024 whatever the size; one of exactly size
 * characters loses the last without it.  Without dst, with a size of 0 or less, and
 * when there is no field, the result is a buffer of the library's, another than that
 * of get_string. */
ZAN_API char *get_string2(char **pos, int *room, char *dst, int size);

/* Reads a number: 0 also when there is none; a field of another length prints
 * "get int failed data len = LENGTH, buf len = ROOM". */
ZAN_API int get_int(char **pos, int *room);

/* ------------------------------------------------------------------------ */
/* Time and hashing                                                          */
/* ------------------------------------------------------------------------ */

/* A time, in seconds since 1970, as UTC: "2020-01-01T12:00:00", without a zone.  0
 * stands for an unknown time, "0001-01-01T00:00:00Z", for which buf must have 21
 * bytes whatever its size; any other text that does not fit size leaves an empty
 * one, and with size 0 nothing is written.  Returns buf. */
ZAN_API char *time_string(char *buf, unsigned int size, int32_t t);

/* Reads a text of one of three forms: one that has a "-" anywhere is of the first, any
 * other that has a ":" of the second.
 *     "2020-01-01T12:00:00"   "20200101T12:00:00"   "20200101T120000"
 * It is local time when nothing follows, otherwise UTC, less the offset that "+" or "-"
 * begins, at once or behind a fraction of seconds.  With a ":" as its fourth character
 * an offset is hours and minutes, "+01:00", otherwise one number hhmm: "+0100", while
 * "+01" is one minute.  *t is -1 when the text has no time that fits 32 bits, and 0 for
 * the unknown time.  1, or 0 when an argument is null. */
ZAN_API int string_time(const char *text, int32_t *t);

/* 32-bit FNV-1 of the lower-cased text, without the top bit, modulo a modulus above
 * 0.  Bytes from 128 up are mixed in sign-extended.  A null text counts as empty. */
ZAN_API uint32_t fnv1_hash(const char *text, int modulus);

/* ------------------------------------------------------------------------ */
/* Processes and files                                                       */
/* ------------------------------------------------------------------------ */

/* Runs a command through the shell, its error output discarded and its text cut
 * at 1023 characters: the wait status, or -1. */
ZAN_API int zan_system(const char *command);

/* The bound on open descriptors, asked for once: 1024 when there is none.
 * Negative after printing "sysconf error for _SC_OPEN_MAX" (no line end). */
ZAN_API int open_max(void);

/* A stream from ("r") or to ("w") a command run by the shell; null on failure,
 * with EINVAL for another mode.  Later commands do not inherit the streams of
 * earlier ones.  Not to be called from two threads at once; close the stream
 * with vpclose only. */
ZAN_API FILE *vpopen(const char *command, const char *mode);

/* Closes a stream of vpopen and waits for its command: the raw wait status, or
 * -1, also for any other stream, which is then left open. */
ZAN_API int vpclose(FILE *stream);

/* Runs a command and stores its first line, without the line end and at most
 * size-1 characters, in buf; buf is untouched when the command prints nothing.
 * Always 0; when the command cannot be started prints
 * "### zan_popen Error: command=COMMAND" and reports "Error: REASON" on standard
 * error.  Threads as vpopen. */
ZAN_API int zan_popen(const char *command, char *buf, int size);

/* 1 when the file can be opened for reading, else 0. */
ZAN_API int zan_file_exists(const char *path);

/* As fopen; prints "### Warning:zan_fopen NULL" when it returns null. */
ZAN_API FILE *zan_fopen(const char *path, const char *mode);

/* As fclose; for a null stream prints "### Warning:zan_fclose NULL" and returns how many
 * characters that is, with the line end. */
ZAN_API int zan_fclose(FILE *stream);

/* As close for a descriptor above 0; for any other prints "### Warning:zan_close[FD]" and
 * returns how many characters that is, with the line end.  It stays open: 0 means "no
 * descriptor" to the modules. */
ZAN_API int zan_close(int fd);

/* ------------------------------------------------------------------------ */
/* Output                                                                    */
/* ------------------------------------------------------------------------ */

/* Prints to "/dev/console", opened for this call, or nothing when that fails. */
ZAN_API void zan_dprintf(const char *fmt, ...) ZAN_PRINTF(1, 2);

/* Writes n bytes to the stream and returns how many were written; n, when there
 * is no stream or nothing to write. */
ZAN_API int redirect_output(const void *buf, int n, FILE *stream);

#ifdef __cplusplus
}
#endif

#endif /* ZAN_H */
