/* SPDX-License-Identifier: MIT */
/*
 * A mesh agent: registers over TCP in addition to its queue, waits in a select loop
 * for a question from another module, reads the answer from the configuration over
 * its link, sends it, and unregisters.
 *
 * The device must be a mesh agent: in /InternetGatewayDevice/X_ORVANE_EasyMesh,
 * Enable is 1 and DeviceRole is Agent.
 */
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/select.h>
#include <unistd.h>
#include <zan.h>

#define MODULE "mesh_agent"
#define CHANNEL_PATH "/InternetGatewayDevice/LANDevice:1/WLANConfiguration:1/Channel"

static volatile sig_atomic_t interrupted;
static char sender[ZAN_NAME_SIZE];
static char question[64];

static void on_signal(int number) {
    (void)number;
    interrupted = 1;
}

/* Notes the question and leaves the work to the select loop: a handler must not wait
 * for an answer on the link that delivered its record. */
static int on_message(char *data, int len, zan_body *body) {
    snprintf(sender, sizeof sender, "%.*s", ZAN_NAME_SIZE - 1, body->src);
    snprintf(question, sizeof question, "%.*s", len, data);
    return 0;
}

static int report(const char *what, int result) {
    if (result < 0)
        fprintf(stderr, "%s: %s failed with %d\n", MODULE, what, result);
    return result;
}

/* Add the other descriptors of your module to this select().  The library sets aside
 * records that arrive while a request waits for its answer, and asks the daemon for a
 * record that wakes this loop. */
static int wait_for_question(void) {
    while (sender[0] == '\0' && !interrupted) {
        fd_set ready;
        FD_ZERO(&ready);
        FD_SET(g_ipc_handle, &ready);
        if (select(g_ipc_handle + 1, &ready, NULL, NULL, NULL) < 0)
            continue;
        if (report("receiving", zan_client_recv(g_ipc_handle, NULL, 0)) < 0)
            return -1;
    }
    return 0;
}

static int answer(void) {
    char channel[16];
    char text[64];
    if (report("reading the channel", ctl_getstr(channel, sizeof channel, CHANNEL_PATH)) < 0)
        return -1;
    snprintf(text, sizeof text, "channel %s", channel);
    printf("%s asks: %s -> %s\n", sender, question, text);
    return report("answering", zan_send_agent(sender, text, (int)strlen(text)));
}

static int serve(void) {
    /* Install the handler before registering, so that no message is lost. */
    zan_set_message_handler(on_message);
    /* The library first reads from the configuration whether the device is a mesh
     * agent.  If it is not, the library prints the reason. */
    if (report("registering as an agent", zan_register_agent(MODULE, (int)getpid())) < 0)
        return -1;
    printf("waiting for a question\n");
    fflush(stdout); /* a reader of a pipe may wait for this line */
    int result = wait_for_question();
    if (result == 0 && sender[0] != '\0')
        result = answer();
    return report("leaving as an agent", zan_unregister_agent(MODULE, (int)getpid())) < 0 ? -1
                                                                                          : result;
}

int main(void) {
    signal(SIGINT, on_signal);
    signal(SIGTERM, on_signal);
    if (report("registering", zan_register(MODULE, 0)) < 0)
        return 1;
    const int failed = serve() < 0;
    return report("unregistering", zan_unregister(MODULE, 0)) < 0 || failed;
}
