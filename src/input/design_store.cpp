#include "input/design_store.h"

namespace zeph {
namespace {

// Stores of the cure model, made when some trait is of kind 7.
void allocate_cure_stores(const model_records& model, design_store& design, reporting& report) {
  constexpr std::string_view routine = "MME_ALLOC";
  const std::int32_t nt = model.nt, nobs = model.nobs();
  allocate_rows(report, design.CURE_Y, "CURE_Y", routine, nt);
  for (std::int32_t t = 1; t <= nt; ++t)
    if (model.MODEL(t).TRAIT_TYPE == trait_sequence)
      allocate(report, design.CURE_Y[static_cast<std::size_t>(t - 1)], "CURE_Y", routine, nobs);
  allocate(report, design.SEQ_M, "SEQ_M", routine, nobs);
  allocate(report, design.CURE_YHAT, "CURE_YHAT", routine, nt, model.n_cure_seq);
  allocate(report, design.LOG_Z, "LOG_Z", routine, nt, model.n_cure_seq);
}

} // namespace

void MME_ALLOC(const model_records& model, std::int32_t m, design_store& design, reporting& report) {
  constexpr std::string_view routine = "MME_ALLOC";
  const std::int32_t nt = model.nt, nobs = model.nobs();
  design.m = m;

  // m: entries of the largest record; a record's entries are a column
  allocate(report, design.XD, "XD", routine, 7, m);
  allocate(report, design.XD1_M, "XD1_M", routine, m, nobs);
  allocate(report, design.XD2_M, "XD2_M", routine, m, nobs);
  allocate(report, design.XD3_M, "XD3_M", routine, m, nobs);
  allocate(report, design.XD4_M, "XD4_M", routine, m, nobs);
  allocate(report, design.XD5_M, "XD5_M", routine, m, nobs);
  allocate(report, design.XD6_M, "XD6_M", routine, m, nobs);
  allocate(report, design.XD7_M, "XD7_M", routine, m, nobs);
  allocate(report, design.ZD, "ZD", routine, m);
  allocate(report, design.ZD_M, "ZD_M", routine, m, nobs);
  allocate(report, design.Y_M, "Y_M", routine, nt, nobs);
  allocate(report, design.WV_M, "WV_M", routine, nt, nobs);
  allocate(report, design.WV_SQRT_M, "WV_SQRT_M", routine, nt, nobs);
  allocate(report, design.ISIT_M, "ISIT_M", routine, nobs);
  allocate(report, design.C_ISIT_M, "C_ISIT_M", routine, nobs);
  allocate(report, design.M_M, "M_M", routine, nobs);
  allocate(report, design.IRESG_M, "IRESG_M", routine, nobs);

  if (model.keeps_residuals() || design.keeps_positions)
    allocate(report, design.OBS_POS_M, "OBS_POS_M", routine, nobs);
  if (model.keeps_residuals()) {
    allocate(report, design.ZEPH_RES, "ZEPH_RES", routine, nt, nobs);
  }
  if (model.has_type(trait_sequence)) allocate_cure_stores(model, design, report);
  if (model.has_type(trait_censored)) {
    allocate(report, design.CENS_M, "CENS_M", routine, nt, nobs);
    allocate(report, design.Y_MMIN, "Y_MMIN", routine, nt, nobs);
    allocate(report, design.Y_MMAX, "Y_MMAX", routine, nt, nobs);
  }
  if (model.L_TD) allocate(report, design.G_TD_LEVEL, "ZEPH_TD%REC_ID", routine, nobs);
}

void count_group_records(model_records& model, const design_store& design) {
  vec<std::int32_t>& count = model.residual().HETG_N_OBS;
  count.fill(0);
  // N_h, by which the residual matrix of the group is drawn
  for (std::int32_t r = 1; r <= design.nobs; ++r) ++count(model.hetgr_index(design.IRESG_M(r)));
}

} // namespace zeph
