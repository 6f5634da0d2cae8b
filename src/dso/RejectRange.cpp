#include "dso/RejectRange.h"

#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "dso/DsoSetupReadout.h"

namespace mervasto {

RejectRange RejectRangeFromCursors(const DsoSetup& setup, float zoomTimePerDiv, float zoomDelay, int32_t recordLength,
                                   const std::array<float, 2>& cursors) {
    const double T = setup.TimePerDiv;
    const double D = setup.TriggerDelay;
    const double N = recordLength;
    if (T == 0) throw RuntimeError(ErrorCode::DivisionByZero, "Division by zero: the time base is 0.");
    RejectRange r;
    const double shift = (D - zoomDelay) / T * (N / 10);
    r.ZoomStart = ToInt32(N / 2 - (zoomTimePerDiv / T) * N / 2 + shift);
    r.ZoomEnd = ToInt32((zoomTimePerDiv / T) * N + r.ZoomStart);
    const double c1 = cursors[0];
    const double c2 = cursors[1];
    r.RejectStart = ToInt32(((10 - c1) * r.ZoomStart + c1 * r.ZoomEnd) / 10);
    r.RejectEnd = ToInt32(((10 - c2) * r.ZoomStart + c2 * r.ZoomEnd) / 10);
    return r;
}

Outcome ReadRejectRangeFromDso(DsoLink& link, DsoSetup& setup, int32_t recordLength, ZoomReadout& out) {
    return Guarded([&] {
        out.ZoomTimePerDiv = static_cast<float>(Val(link.QueryDso("TDIV?", 80)));
        out.ZoomDelay = static_cast<float>(Val(link.QueryDso("TRDL?", 80)));
        ReadDsoCursors(link, setup);
        out.CursorsFromDso = setup.CursorsFromDso;
        out.range = RejectRangeFromCursors(setup, out.ZoomTimePerDiv, out.ZoomDelay, recordLength,
                                           {setup.CursorPos[0], setup.CursorPos[1]});
        link.SendDsoCommand("TDIV " + ShortestText(setup.TimePerDiv));
        link.SendDsoCommand("GTL");
    });
}

}  // namespace mervasto
