/* Loaded in front of the service: kills it in the moment in which the account has been created, and the answer that
 * would tell of it has not been sent. */

#include <microhttpd.h>
#include <signal.h>
#include <unistd.h>

#include <dlfcn.h>

enum MHD_Result MHD_queue_response(struct MHD_Connection* connection, unsigned int status,
                                   struct MHD_Response* response) {
    typedef enum MHD_Result (*Call)(struct MHD_Connection*, unsigned int, struct MHD_Response*);
    Call next;
    if (status == MHD_HTTP_CREATED) kill(getpid(), SIGKILL);
    *(void**)&next = dlsym(RTLD_NEXT, "MHD_queue_response");
    return next(connection, status, response);
}
