#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <vncommon/failure.h>
#include <vncommon/sockets.h>

/* Ends the program on a failure; a server would log the text and go on. */
static void expectSuccess(char* failure) {
    if (failure != NULL) {
        printf("failed: %s\n", failure);
        vn_free(failure);
        exit(1);
    }
}

static int portOf(int listener) {
    struct sockaddr_in address;
    socklen_t size = sizeof address;
    getsockname(listener, (struct sockaddr*)&address, &size);
    return ntohs(address.sin_port);
}

int main(void) {
    signal(SIGPIPE, SIG_IGN); /* a closed connection is a failure text, not the end */

    int listener = -1, client = -1, server = -1;
    expectSuccess(vn_createListeningSocket(0, &listener)); /* 0: any free port */
    expectSuccess(vn_socketConnect(NULL, portOf(listener), &client));
    expectSuccess(vn_socketAccept(listener, &server));

    CStringBuffer line;
    vn_strbufInit(&line, 0);
    expectSuccess(vn_socketWrite(client, "HELLO\r\nBYE\n"));
    expectSuccess(vn_socketReadLine(server, &line)); /* without its line end */
    printf("%s\n", vn_strbufGetString(&line));

    vn_socketClose(client);
    vn_strbufTruncate(&line, 0);
    expectSuccess(vn_socketReadLine(server, &line));
    char* failure = vn_socketReadLine(server, &line);
    printf("%s, then: %s\n", vn_strbufGetString(&line), failure);
    vn_free(failure);

    vn_strbufDestroy(&line, 1);
    vn_socketClose(server);
    vn_socketClose(listener);
    return 0;
}
