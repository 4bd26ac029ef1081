// kivo.h: every public header of the kivo library.
#pragma once

#include <kivo/kivoExport.h>
#include <kivo/kivoVersion.h>

#include <kivo/support/kivoCheckpointed.h>
#include <kivo/support/kivoDebugCRTP.h>
#include <kivo/support/kivoDebugCount.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>
#include <kivo/support/kivoRefCounted.h>
#include <kivo/support/kivoRef.h>

#include <kivo/data/kivoDataMember.h>
#include <kivo/data/kivoDataIterLocation.h>
#include <kivo/data/kivoDataStructureIterator.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataIndexType.h>
#include <kivo/data/kivoDataIndexPair.h>
#include <kivo/data/kivoDataIndexString.h>
#include <kivo/data/kivoDataStreamIterator.h>
#include <kivo/data/kivoDataStreamIteratorImpl.h>
#include <kivo/data/kivoDataStreamDenseIteratorImpl.h>
#include <kivo/data/kivoDataStreamMappedIteratorImpl.h>
#include <kivo/data/kivoDataStreamImpl.h>
#include <kivo/data/kivoDataStreamImplDense.h>
#include <kivo/data/kivoDataStreamImplMapped.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataDenseStreamView.h>
#include <kivo/data/kivoDataChannelImpl.h>
#include <kivo/data/kivoDataChannelIterator.h>
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataAssociationsImpl.h>
#include <kivo/data/kivoDataAssociationsIterator.h>
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataAttach.h>
#include <kivo/data/kivoDataAttachDirectly.h>

#include <kivo/serialize/kivoDataAssociationsSerializer.h>
#include <kivo/serialize/kivoDataAssociationsSerializerRaw.h>
#include <kivo/serialize/kivoDataChannelSerializer.h>
#include <kivo/serialize/kivoDataChannelSerializerRaw.h>
#include <kivo/serialize/kivoDataSerializerInitializer.h>
#include <kivo/serialize/kivoDataSerializerRaw.h>
#include <kivo/serialize/kivoDataStreamSerializer.h>
#include <kivo/serialize/kivoDataStreamSerializerRaw.h>
#include <kivo/serialize/kivoDataStructureSerializer.h>
#include <kivo/serialize/kivoDataStructureSerializerDebug.h>
#include <kivo/serialize/kivoDataStructureSerializerRaw.h>

#include <kivo/access/kivoDataAccessor.h>
#include <kivo/access/kivoDataAccessorTarn.h>
