// SPDX-License-Identifier: Apache-2.0
#include "Bridging/Fdb.h"
#include "Bridging/Config.h"
#include "Bridging/HostTableFlush.h"
#include "Kiv/Reflect.h"

KIV_DEFINE( Bridging::FdbConfig );
KIV_DEFINE( Bridging::FdbStatus );
KIV_DEFINE( Bridging::Status );
KIV_DEFINE( Bridging::DynamicHostStatus );
KIV_DEFINE( Bridging::Config );
KIV_DEFINE( Bridging::VlanConfig );
KIV_DEFINE( Bridging::VlanConfigDir );
KIV_DEFINE( Bridging::HostTableFlushRequestDir );
KIV_DEFINE( Bridging::HostTableFlushReplyDir );
KIV_DEFINE( Bridging::AllHostTableFlushRequestDir );
KIV_DEFINE( Bridging::AllHostTableFlushReplyDir );
