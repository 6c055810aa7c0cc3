#ifndef STARTER_SERVICE_REPOSITORY_H
#define STARTER_SERVICE_REPOSITORY_H

/// Take the gaps out of the process-wide repository of services, and keep the order of what is in it. The framework
/// leaves a gap for every service that is removed and fills none again, so that a process would grow, and look its
/// services up more and more slowly, with every reload. Main thread, while it loads no service.
void pack_service_repository();

#endif // STARTER_SERVICE_REPOSITORY_H
