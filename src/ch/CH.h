#ifndef CH_H
#define CH_H

// The whole public interface of chanlib.

#include <ch/CH_Version.h>
#include <ch/auxiliary/CH_ScriptAccessManager.h>
#include <ch/expr/CH_ExprDefine.h>
#include <ch/expr/CH_ExprFunctions.h>
#include <ch/expr/CH_ExprLanguage.h>
#include <ch/expr/CH_Expression.h>
#include <ch/expr/CH_LocalVariable.h>
#include <ch/io/CH_Collection.h>
#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_ChannelBehavior.h>
#include <ch/channel/CH_FullKey.h>
#include <ch/channel/CH_Key.h>
#include <ch/channel/CH_ReversibleKey.h>
#include <ch/channel/CH_Segment.h>
#include <ch/channel/CH_SegmentFlags.h>
#include <ch/channel/CH_SegmentValues.h>
#include <ch/channel/CH_Spline.h>
#include <ch/channel/CH_ValueTypes.h>
#include <ch/manager/CH_ChangeType.h>
#include <ch/manager/CH_ChannelRef.h>
#include <ch/manager/CH_ChannelRefHashTable.h>
#include <ch/manager/CH_EventManager.h>
#include <ch/manager/CH_Group.h>
#include <ch/manager/CH_HashChRef.h>
#include <ch/manager/CH_Manager.h>
#include <ch/manager/CH_TimeGroup.h>

#include <ev/EV_Engine.h>

#include <ut/UT_Array.h>
#include <ut/UT_EnvControl.h>
#include <ut/UT_Error.h>
#include <ut/UT_ErrorManager.h>
#include <ut/UT_ExprVariableScan.h>
#include <ut/UT_FloatArray.h>
#include <ut/UT_IntArray.h>
#include <ut/UT_Interrupt.h>
#include <ut/UT_Matrix3.h>
#include <ut/UT_Noise.h>
#include <ut/UT_PtrArray.h>
#include <ut/UT_Quaternion.h>
#include <ut/UT_RefArray.h>
#include <ut/UT_ScopeExit.h>
#include <ut/UT_SharedString.h>
#include <ut/UT_String.h>
#include <ut/UT_StringArray.h>
#include <ut/UT_SymbolTable.h>
#include <ut/UT_Thread.h>
#include <ut/UT_ThreadSlots.h>
#include <ut/UT_Vector3.h>
#include <ut/UT_WorkBuffer.h>
#include <ut/UT_XformOrder.h>

#endif
