#include "device_access.h"
#include "fuzz/BoardOnMemory.h"
#include "inventory_manager.h"
#include "tools/kvboardd/Wire.h"

/*
 * One call of any procedure with any arguments: it is answered, and results are exactly one record of the procedure,
 * with an error list that can be read. The first byte says which service, whether the caller holds a lock of level 2
 * (id 100) with a name for a file (00000000000000a0), and whether by datagram; the second the procedure.
 */

using namespace KvNFuzz;
using namespace KvNBoardService;
using Program = BoardOnMemory::Program;

namespace {

constexpr KvUInt32 peer = 0x7F000001;

void readErrors(const void* data, std::size_t size)
{
    KvCErrorListPool errors;
    KV_FUZZ_CHECK(errors.deSerialize(static_cast<const unsigned char*>(data), size));
}

template <class Result, bool_t (*routine)(XDR*, Result*)>
void check(const Bytes& results)
{
    Record<Result, routine> record;
    KV_FUZZ_CHECK(record.decode(results));
    readErrors(record->errorList.errorList_val, record->errorList.errorList_len);
}

void checkAccess(KvUInt32 procedure, const Bytes& results)
{
    switch (procedure) {
        case KVDA_IDENTIFY:
            return check<KvdaIdentity, xdr_KvdaIdentity>(results);
        case KVDA_REQUEST_ACCESS:
            return check<KvdaAccess, xdr_KvdaAccess>(results);
        case KVDA_PUT_BEGIN:
            return check<KvdaTransfer, xdr_KvdaTransfer>(results);
        case KVDA_PUT_DATA:
            return check<KvdaReceived, xdr_KvdaReceived>(results);
        case KVDA_ACCESS_STATE:
            return check<KvdaAccessState, xdr_KvdaAccessState>(results);
        case KVDA_LIST_FILES:
            return check<KvdaFileList, xdr_KvdaFileList>(results);
        case NULLPROC:
            KV_FUZZ_CHECK(results.empty());
            return;
        default:
            return check<KvdaResult, xdr_KvdaResult>(results);
    }
}

void checkInventory(KvUInt32 procedure, const Bytes& results)
{
    switch (procedure) {
        case KVIM_SCAN:
            return check<KvimScanResult, xdr_KvimScanResult>(results);
        case KVIM_READ_PARAMETER:
            return check<KvimReadParameterResult, xdr_KvimReadParameterResult>(results);
        case KVIM_GET_LOCAL_ADDRESS:
            return check<KvimLocalAddressResult, xdr_KvimLocalAddressResult>(results);
        case KVIM_UPDATE_STATUS:
            return check<KvimUpdateStatusResult, xdr_KvimUpdateStatusResult>(results);
        case KVIM_GENERATE_REMOTE_FILENAME:
            return check<KvimRemoteFilenameResult, xdr_KvimRemoteFilenameResult>(results);
        case KVIM_CHECK_AUTHORITY:
            return check<KvimCheckAuthorityResult, xdr_KvimCheckAuthorityResult>(results);
        case KVIM_UPDATE_STATUS_2:
            return check<KvimUpdateStatus2Result, xdr_KvimUpdateStatus2Result>(results);
        case KVIM_UPDATE_ERRORS_2:
            return check<KvimUpdateErrors2Result, xdr_KvimUpdateErrors2Result>(results);
        case KVIM_NULL:
            KV_FUZZ_CHECK(results.empty());
            return;
        default:
            return check<KvimResult, xdr_KvimResult>(results);
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    Input input(data, size);
    const unsigned char how = input.byte();
    const KvUInt32 procedure = input.byte();
    const Bytes arguments = input.all();
    const Program program = how % 4 == 1   ? Program::Inventory
                            : how % 4 == 2 ? Program::PortMapper
                                           : Program::DeviceAccess;
    BoardOnMemory board;
    if ((how & 4) != 0) {
        board.call(Program::DeviceAccess, 2, Arguments().number(2).number(0).longNumber(1).text("ann@pc").bytes(),
                   peer);
        board.call(Program::Inventory, 10, Arguments().address("HCN[4711]").number(board.firstAccessId).bytes(), peer);
    }
    const Answer answer = board.call(program, procedure, arguments, peer, (how & 8) != 0);
    KV_FUZZ_CHECK(answer.accessId == 0 || answer.accessId >= BoardOnMemory::firstAccessId);
    if (answer.kind != Answer::Kind::Success) {
        KV_FUZZ_CHECK(answer.results.empty());
        // Nothing that a caller sends is the service's failure.
        KV_FUZZ_CHECK(answer.kind != Answer::Kind::SystemError);
        return 0;
    }
    if (program == Program::DeviceAccess)
        checkAccess(procedure, answer.results);
    else if (program == Program::Inventory)
        checkInventory(procedure, answer.results);
    return 0;
}
