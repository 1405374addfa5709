// The types, offsets and sizes that callers are compiled against. The figures follow from the order
// of the fields and the sizes of their types on 64-bit processors; the build fails when they
// change.
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "bigint/mp_int.h"
#include "commit/CCommitScript.h"
#include "net/CHttpCLI.h"
#include "probes/CDfProcess.h"
#include "services/CInitService.h"
#include "services/CSystemdService.h"
#include "setuprun/CInstallBase.h"
#include "setuprun/CQueueLimits.h"

#ifdef __LP64__

// offsetof on a class with a virtual destructor is supported by our compilers, which warn of it.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

#define FIELD(type, field, offset)                               \
    static_assert(std::is_same_v<decltype(CLASS::field), type>); \
    static_assert(offsetof(CLASS, field) == (offset))

#define CLASS CInstallBase
FIELD(COSRelease*, m_osRelease, 8);
FIELD(QString, m_osName, 16);
FIELD(QString, m_productTitle, 40);
FIELD(bool, m_allowNonRoot, 64);
FIELD(QString, m_binariesDir, 72);
FIELD(QString, m_installDir, 96);
FIELD(int, m_coreCount, 120);
FIELD(int, m_ramMB, 124);
FIELD(int, m_accessFlags, 128);
FIELD(bool, m_cdInstall, 132);
FIELD(bool, m_interactive, 133);
FIELD(bool, m_clusterNode, 134);
FIELD(bool, m_setup, 135);
FIELD(bool, m_userMode, 136);
FIELD(QString, m_serviceGroup, 144);
FIELD(QString, m_serviceUser, 168);
FIELD(QString, m_scheduler, 192);
FIELD(int, m_queueType, 216);
FIELD(QString, m_queueName, 224);
FIELD(QString, m_qsubCmd, 248);
FIELD(QString, m_qdelCmd, 272);
FIELD(QString, m_qsigCmd, 296);
FIELD(QString, m_partitionName, 320);
FIELD(QString, m_sbatchCmd, 344);
FIELD(QString, m_scancelCmd, 368);
FIELD(QString, m_compSrvcAllow, 392);
FIELD(int, m_compSrvcHttpPort, 416);
FIELD(QString, m_compSrvcHttpAddr, 424);
FIELD(int, m_compSrvcHttpsPort, 448);
FIELD(QString, m_compSrvcHttpsAddr, 456);
FIELD(QString, m_compSrvcCert, 480);
FIELD(QString, m_compSrvcKey, 504);
FIELD(QString, m_compSrvcDh, 528);
FIELD(int, m_jobLimit, 552);
FIELD(int, m_prevJobLimit, 556);
FIELD(QString, m_scratchDir, 560);
FIELD(QString, m_prevScratchDir, 584);
FIELD(int, m_scratchLimitGB, 608);
FIELD(int, m_prevScratchLimitGB, 612);
FIELD(int, m_argScratchLimitGB, 616);
FIELD(int, m_memoryLimitMB, 620);
FIELD(int, m_prevMemoryLimitMB, 624);
FIELD(int, m_argMemoryLimitMB, 628);
FIELD(int, m_threadsPerMolecule, 632);
FIELD(int, m_serviceUid, 636);
FIELD(int, m_serviceGid, 640);
FIELD(QStringList, m_serviceMembers, 648);
FIELD(QStringList, m_serviceCurrentMembers, 672);
static_assert(sizeof(CLASS) == 696);
#undef CLASS

#define CLASS CQueueLimits
FIELD(bool, m_dirty, 8);
FIELD(std::string, m_path, 16);
FIELD(int, MaxThreads, 48);
FIELD(int, MemoryPerThreadMB, 52);
FIELD(int, DiskPerThreadGB, 56);
FIELD(std::string, Scratch, 64);
FIELD(int, ThreadsPerMolecule, 96);
static_assert(sizeof(CLASS) == 104);
#undef CLASS

// A QObject is its table of virtual operations and one pointer.
#define CLASS CHttpCLI
FIELD(QString, m_url, 16);
FIELD(QEventLoop*, m_eventLoop, 40);
FIELD(bool, m_cancelled, 48);
FIELD(QByteArray, m_data, 56);
FIELD(QNetworkAccessManager*, m_manager, 80);
FIELD(QNetworkReply*, m_reply, 88);
static_assert(sizeof(CLASS) == 96);
#undef CLASS

#define CLASS mp_int
FIELD(uint8_t, sign, 0);
FIELD(uint32_t, alloc, 4);
FIELD(uint32_t, used, 8);
FIELD(mp_digit*, dp, 16);
static_assert(sizeof(CLASS) == 24);
#undef CLASS

#undef FIELD

#endif

namespace {

// Every one of these is the process that it controls, and adds no field.
static_assert(sizeof(CCommitScript) == sizeof(QProcess));
static_assert(sizeof(CDfProcess) == sizeof(QProcess));
static_assert(sizeof(CInitService) == sizeof(QProcess));
static_assert(sizeof(CSystemdService) == sizeof(QProcess));

static_assert(std::has_virtual_destructor_v<CInstallBase>);
static_assert(std::has_virtual_destructor_v<CQueueLimits>);

// What a program that knows a class by its meta-object alone would see.
template <typename Class>
void ExpectBareProcess(const char* name) {
    const QMetaObject& meta = Class::staticMetaObject;
    EXPECT_STREQ(meta.className(), name);
    EXPECT_EQ(meta.superClass(), &QProcess::staticMetaObject);
    EXPECT_EQ(meta.methodCount(), meta.methodOffset());
    EXPECT_EQ(meta.propertyCount(), meta.propertyOffset());
    EXPECT_EQ(meta.enumeratorCount(), meta.enumeratorOffset());
    EXPECT_EQ(meta.classInfoCount(), meta.classInfoOffset());
    EXPECT_EQ(meta.constructorCount(), 0);
    const Class object(nullptr);
    EXPECT_EQ(object.metaObject(), &meta);
}

TEST(MetaObjects, OfTheProcessesAddNothingToQProcess) {
    ExpectBareProcess<CCommitScript>("CCommitScript");
    ExpectBareProcess<CDfProcess>("CDfProcess");
    ExpectBareProcess<CInitService>("CInitService");
    ExpectBareProcess<CSystemdService>("CSystemdService");
}

}  // namespace
