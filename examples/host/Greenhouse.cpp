// All of their registration: which members are attributes, what keys a bed, what may be set.
#include "Greenhouse.h"

#include "Kel/Declare.h"

void declareGreenhouse() {
  Kel::enumType<Crop>("Crop", {{"fallow", Crop::Fallow}, {"tomato", Crop::Tomato}, {"pepper", Crop::Pepper}});
  Kel::entityType<Bed>("Bed")
      .attr("name", &Bed::name)
      .ctorArg()
      .keyField()
      .attr("crop", &Bed::crop)
      .settable()
      .attr("note", &Bed::note)
      .settable()
      .attr("moisture", &Bed::moisture)
      .done();
  Kel::entityType<Greenhouse>("Greenhouse").instantiating("bed", &Greenhouse::beds).index("name").done();
}
