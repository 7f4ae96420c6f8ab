#include "services/worker.h"

Worker::Worker()
{
    m_thread.setMaxThreadCount(1);
}

Worker::~Worker()
{
    m_thread.clear();
    m_thread.waitForDone();
}
