/* SPDX-License-Identifier: MIT */
/*
 * A mesh agent: registers over TCP besides its queue, waits in a select loop until
 * another module asks it something, looks the answer up over its link, sends it,
 * and goes.
 *
 * The device must be a mesh agent: /InternetGatewayDevice/X_ORVANE_EasyMesh/Enable
 * is 1 and DeviceRole beside it is Agent.
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
static char asker[ZAN_NAME_SIZE];
static char question[64];

static void on_signal(int number) {
    (void)number;
    interrupted = 1;
}

/* Only notes what came: an answer awaited in here would have to come on the link
 * that is being read. */
static int on_message(char *data, int len, zan_body *body) {
    snprintf(asker, sizeof asker, "%.*s", ZAN_NAME_SIZE - 1, body->src);
    snprintf(question, sizeof question, "%.*s", len, data);
    return 0;
}

static int report(const char *what, int result) {
    if (result < 0)
        fprintf(stderr, "%s: %s failed with %d\n", MODULE, what, result);
    return result;
}

/* A module of its own would watch its other descriptors here, too.  What arrives
 * while a request waits for its answer is kept by the library, which asks the daemon
 * for a record that wakes this loop. */
static int wait_for_question(void) {
    while (asker[0] == '\0' && !interrupted) {
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
    printf("%s asks: %s -> %s\n", asker, question, text);
    return report("answering", zan_send_agent(asker, text, (int)strlen(text)));
}

static int serve(void) {
    /* Before the registration, so that no message finds nobody. */
    zan_set_message_handler(on_message);
    /* The library looks in the tree, over the queue, whether the device is an agent;
     * when it is not, the library says why. */
    if (report("registering as an agent", zan_register_agent(MODULE, (int)getpid())) < 0)
        return -1;
    printf("waiting for a question\n");
    fflush(stdout); /* also when the output is a pipe: whoever reads it may wait for this */
    int result = wait_for_question();
    if (result == 0 && asker[0] != '\0')
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
