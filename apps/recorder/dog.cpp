#include "dog.h"

#include <devcomm/watchdog.h>

Dog::Dog(const char* name) : id_(CCommDog::Instance()->RegisterDog(const_cast<char*>(name), kTimeoutSeconds))
{
}

Dog::~Dog()
{
  CCommDog::Instance()->DeregisterDog(id_);
}

void Dog::feed() const
{
  CCommDog::Instance()->FeedDog(id_);
}
