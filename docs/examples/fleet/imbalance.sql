-- How unevenly adapters use their planes, by the type of adapter: the share of the busiest plane,
-- divided by an equal share.
with steps as (
  select source, event_type, device_name, plane,
         -- Counters of 32 bits go round.
         (tx_pkts::bigint - lag(tx_pkts) over samples) & 4294967295 as step
  from events where type = 'plane' and tx_pkts is not null
  window samples as (partition by source, run, device_name, plane order by sequence)),
planes as (
  select source, event_type, device_name, plane, sum(step) as packets from steps group by all),
adapters as (
  select source, event_type, device_name, count(*) as planes,
         max(packets) / avg(packets) as imbalance
  from planes group by all having sum(packets) > 0)
select event_type, planes, count(*) as adapters, round(avg(imbalance), 2) as mean,
       round(max(imbalance), 2) as worst, arg_max(source || ' ' || device_name, imbalance) as worst_at
from adapters group by all order by worst desc, event_type;
