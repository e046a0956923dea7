#include "dog.h"

#include <devcomm/watchdog.h>

Dog::Dog(const char* name, int seconds)
    : id_(CCommDog::Instance()->RegisterDog(const_cast<char*>(name), seconds))
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
