#include "sigweave/services/TimeNames.h"

namespace tc {

// clang-format off
const TimeNames TIME_NAMES_DE = {
    {"Januar", "Februar", "M\xE4rz", "April", "Mai", "Juni",
     "Juli", "August", "September", "Oktober", "November", "Dezember"},
    {"Jan", "Feb", "M\xE4r", "Apr", "Mai", "Jun", "Jul", "Aug", "Sep", "Okt", "Nov", "Dez"},
    {"Sonntag", "Montag", "Dienstag", "Mittwoch", "Donnerstag", "Freitag", "Samstag"},
    {"Son", "Mon", "Die", "Mit", "Don", "Fre", "Sam"},
};

const TimeNames TIME_NAMES_EN = {
    {"January", "February", "March", "April", "May", "June",
     "July", "August", "September", "October", "November", "December"},
    {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"},
    {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"},
    {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"},
};

const TimeNames TIME_NAMES_FR = {
    {"Janvier", "F\xE9vrier", "Mars", "Avril", "Mai", "Juin",
     "Juillet", "Ao\xFBt", "Septembre", "Octobre", "Novembre", "D\xE9" "cembre"},
    {"Jan", "F\xE9v", "Mar", "Avr", "Mai", "Jun", "Jui", "Ao\xFB", "Sep", "Oct", "Nov", "D\xE9" "c"},
    {"Dimanche", "Lundi", "Mardi", "Mercredi", "Jeudi", "Vendredi", "Samedi"},
    {"Dim", "Lun", "Mar", "Mer", "Jeu", "Ven", "Sam"},
};
// clang-format on

}  // namespace tc
